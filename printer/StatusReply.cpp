#include "printer/StatusReply.h"

#include "ipc/ChannelVocabulary.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace veltrin::printer {

std::optional<StatusReply> statusReply(const std::vector<ReplyRule> &rules, std::uint64_t request,
                                       const ReverseRecord &record) {
    std::vector<std::byte> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    StatusReply reply{channel::readPipe, bytes, {}};

    const auto rule = std::find_if(rules.begin(), rules.end(), [request](const ReplyRule &candidate) {
        return request >= candidate.first && request <= candidate.last;
    });
    if (rule == rules.end()) {
        return reply;
    }
    switch (rule->fault) {
    case ReplyFault::missing:
        return std::nullopt;
    case ReplyFault::late:
        reply.delay = rule->by;
        break;
    case ReplyFault::empty:
        reply.data->clear();
        break;
    case ReplyFault::noData:
        reply.data.reset();
        break;
    case ReplyFault::tooShort:
        reply.data->pop_back();
        break;
    case ReplyFault::tooLong:
        reply.data->resize(sizeof record + 1);
        break;
    case ReplyFault::wrongTag:
        std::reverse(reply.data->begin(), reply.data->begin() + reverseRecordTag.size());
        break;
    case ReplyFault::wrongObject:
        reply.object = channel::writePipe;
        break;
    }
    return reply;
}

} // namespace veltrin::printer
