#include "tests/foundation/Stranger.h"

#include "platform/apple/FoundationText.h"
#include "platform/apple/ReleasePool.h"

namespace veltrin::test {

namespace {

void post(const std::string &name, NSString *object, id value, NSString *key) {
    [[NSDistributedNotificationCenter defaultCenter]
        postNotificationName:platform::foundationText(name)
                      object:object
                    userInfo:[NSDictionary dictionaryWithObject:value forKey:key]];
}

} // namespace

void postTextAsData(const std::string &name, const std::string &object) {
    const platform::ReleasePool pool;
    post(name, platform::foundationText(object), @"a text", @"data");
}

void postWithoutObject(const std::string &name) {
    const platform::ReleasePool pool;
    post(name, nil, [NSData data], @"other");
}

} // namespace veltrin::test
