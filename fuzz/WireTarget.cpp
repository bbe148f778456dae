// The printer at the end of a wire, where anybody may connect. The input is a script: what a host sends, in
// what pieces, when it ends and comes again, and how the time goes on.

#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "printer/VirtualPrinter.h"
#include "printer/WireEnd.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>

namespace veltrin::fuzz {

namespace {

using namespace std::chrono_literals;
using printer::PrinterTime;

class Host {
  public:
    explicit Host(Input &theInput)
        : input(theInput), device(scenarioFrom(input.byte()), listener()), wire(device) {}

    void run() {
        while (!input.isEmpty() && !wire.isGone()) {
            step();
            doWhatIsDue();
        }
        if (isConnected) {
            wire.hostLost(now);
        }
        pass(1h);
        require(taken <= sent, "the printer takes no more than was sent");
    }

  private:
    static printer::Scenario scenarioFrom(std::uint8_t choice) {
        constexpr const char *texts[] = {
            R"({"description": "ordinary"})",
            R"({"description": "little memory", "printer": {"memory": {"image": 1052000, "header": 2000}}})",
            R"({"description": "switched off and on", "events": [{"at": 0.5, "do": "vanish", "for": 2}]})",
            R"({"description": "cut", "events": [{"afterPage": 1, "do": "cut"}, {"at": 3, "do": "cover-open", "for": 2}]})",
        };
        std::string problem;
        auto scenario = printer::parseScenario(texts[choice % std::size(texts)], problem);
        require(scenario.has_value(), problem.c_str());
        return *scenario;
    }

    printer::PrinterListener listener() {
        return {.told =
                    [](PrinterTime, const std::string &line) {
                        require(std::all_of(line.begin(), line.end(),
                                            [](char byte) { return byte >= ' ' && byte <= '~'; }),
                                "what a host sends does nothing to a terminal");
                    },
                .dataArrived = [this](std::span<const std::byte> bytes) { taken += bytes.size(); },
                .jobEnded = [this](const printer::JobReport &) { ++jobs; }};
    }

    void step() {
        const std::uint8_t what = input.byte();
        if (what >= 250) {
            pass(std::chrono::milliseconds(input.byte() * 50));
        } else if (what >= 246 && isConnected) {
            wire.hostEnded(now);
            hasEnded = true;
        } else if (what >= 242 && isConnected) {
            wire.hostLost(now);
            isConnected = false;
        } else if (!isConnected) {
            wire.connected("host", now);
            isConnected = true;
            hasEnded = false;
        } else if (!hasEnded) {
            const auto bytes = input.bytes(std::min<std::size_t>(std::size_t{what} * 16 + 1, wire.room()));
            require(wire.room() <= printer::WireEnd::lineBuffer, "no more is read than there is room for");
            sent += bytes.size();
            wire.received(bytes, now);
        }
    }

    void pass(PrinterTime time) {
        const PrinterTime until = now + time;
        std::size_t steps = 0;
        for (auto due = wire.nextDue(); due && *due <= until; due = wire.nextDue()) {
            require(++steps < 100000, "what is due is done with");
            now = std::max(now, *due);
            wire.advance(now);
            doWhatIsDue();
        }
        now = until;
        wire.advance(now);
        doWhatIsDue();
    }

    void doWhatIsDue() {
        while (const auto deed = wire.takeDeed()) {
            if (*deed == printer::WireDeed::close || *deed == printer::WireDeed::breakOff) {
                isConnected = false;
            }
        }
        if (const auto due = wire.nextRecordDue(); due && *due <= now) {
            if (const auto record = wire.takeRecord()) {
                require(record->size() <= 200, "a record is one, whatever is wrong with it");
            }
        }
    }

    Input &input;
    printer::VirtualPrinter device;
    printer::WireEnd wire;
    PrinterTime now{};
    bool isConnected = false;
    bool hasEnded = false;
    std::uint64_t sent = 0;
    std::uint64_t taken = 0;
    std::uint64_t jobs = 0;
};

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    veltrin::fuzz::Input input(data, size);
    veltrin::fuzz::Host(input).run();
    return 0;
}
