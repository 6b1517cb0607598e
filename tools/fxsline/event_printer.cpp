#include "tools/fxsline/event_printer.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace fxsline {

namespace {

using json = nlohmann::ordered_json;

void print(std::string const& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

std::string as_text(json const& object) {
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

void event_printer::serving(std::string const& mountpoint, unsigned lines) const {
    if (how == style::json)
        print(as_text({{"time_ms", 0}, {"event", "serving"}, {"mountpoint", mountpoint}, {"lines", lines}}));
    else if (how == style::text)
        print("serving " + mountpoint + "/sdt0 to sdt" + std::to_string(lines - 1));
}

void event_printer::event(line_event const& event) const {
    if (how != style::quiet)
        print(how == style::json ? event_json(event) : event_text(event));
}

void event_printer::totals(line_bank& bank) const {
    for (unsigned index = 0; index < bank.lines() && how != style::quiet; index++) {
        line_counters const& count = bank.line(index).counters();
        if (count.opens == 0)
            continue;
        uint64_t const read = count.samples_read / block_samples;
        uint64_t const written = count.samples_written / block_samples;
        if (how == style::json) {
            print(as_text({{"time_ms", bank.ticks() * tick_ms},
                           {"line", index},
                           {"event", "totals"},
                           {"blocks_read", read},
                           {"blocks_written", written},
                           {"overruns", count.overruns},
                           {"underruns", count.underruns}}));
        } else {
            std::printf("line %u: %llu blocks read, %llu written, %llu overruns, %llu underruns\n", index,
                        static_cast<unsigned long long>(read), static_cast<unsigned long long>(written),
                        static_cast<unsigned long long>(count.overruns),
                        static_cast<unsigned long long>(count.underruns));
        }
    }
    std::fflush(stdout);
}

void event_printer::led(line_bank const& bank) const {
    auto const& commands = bank.led_commands().commands();
    if (commands.empty() || how == style::quiet)
        return;
    if (how == style::text) {
        std::printf("call LED, then a drawing with a character for 50 ms:\n%s", bank.led_text().c_str());
        std::fflush(stdout);
        return;
    }
    json list = json::array();
    for (led_command const& command : commands)
        list.push_back({{"time_ms", command.time_ms}, {"on", command.on}});
    uint64_t const now_ms = bank.ticks() * tick_ms;
    print(as_text({{"time_ms", now_ms},
                   {"event", "led_timeline"},
                   {"commands", std::move(list)},
                   {"drawing", bank.led_commands().drawing(now_ms)}}));
}

}  // namespace fxsline
