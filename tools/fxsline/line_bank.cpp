#include "tools/fxsline/line_bank.h"

#include <cerrno>
#include <iomanip>
#include <sstream>
#include <utility>

namespace fxsline {

line_bank::line_bank(bank_config config, event_sink events)
    : base_answers(std::move(config.base_answers)), sink(std::move(events)) {
    for (line_config& line : config.lines)
        telephones.emplace_back(std::move(line));
}

void line_bank::tick() {
    passed++;
    for (unsigned index = 0; index < lines(); index++) {
        tick_report const happened = telephones[index].tick();
        if (happened.underrun)
            report(event_kind::underrun, index);
        if (happened.overrun_began)
            report(event_kind::overrun, index);
        if (happened.speech_ended)
            report(event_kind::speech_ended, index);
    }
}

void line_bank::open_device(unsigned index) {
    if (telephones[index].open_device())
        report(event_kind::device_opened, index);
}

void line_bank::close_device(unsigned index) {
    if (telephones[index].close_device())
        report(event_kind::device_closed, index);
}

int line_bank::request(unsigned index, uint32_t number) {
    if (number == request_tx_clear) {
        report(event_kind::tx_clear, index, static_cast<int64_t>(telephones[index].clear_tx()));
        return 0;
    }
    if (number == request_led_on || number == request_led_off) {
        timeline.add({passed * tick_ms, number == request_led_on});
        report(led() ? event_kind::led_on : event_kind::led_off, index);
        return 0;
    }
    if ((number & ~0xfffU) != request_base)
        return -ENOTTY;
    unsigned const command = number & 0xfff;
    auto const found = base_answers.find(command);
    int const answer = found == base_answers.end() ? 0 : found->second;
    report(event_kind::base_command, index, command, answer);
    return answer;
}

bool line_bank::say(unsigned index, std::string_view command) {
    auto parsed = parse_speech(command);
    if (!parsed.value) {
        refuse_to_say(index, parsed.error);
        return false;
    }
    report(event_kind::say, index, 0, 0, parsed.value->describe());
    telephones[index].say(std::move(*parsed.value));
    return true;
}

std::string line_bank::stats(unsigned index) {
    simulated_line const& line = telephones[index];
    line_counters const& count = line.counters();
    char const* progress = !line.speech_started() ? "waiting" : line.says().ended() ? "ended" : "playing";
    std::ostringstream text;
    text << "time_ms " << passed * tick_ms << "\ndevice " << (line.is_open() ? "open" : "closed") << "\nsays "
         << line.says().describe() << "\nspeech " << progress << "\nopens " << count.opens << "\nblocks_read "
         << count.samples_read / block_samples << "\nblocks_written " << count.samples_written / block_samples
         << "\nsamples_to_read " << line.samples_to_read() << "\nsamples_to_play " << line.samples_to_play()
         << "\noverruns " << count.overruns << "\nunderruns " << count.underruns << "\ntx_clears " << count.tx_clears
         << "\nled " << (led() ? "on" : "off") << "\nheard_level_dbfs " << std::fixed << std::setprecision(1)
         << line.heard_level().dbfs() << "\nheard_peak " << line.heard_level().peak() << "\n";
    return text.str();
}

void line_bank::report(event_kind kind, unsigned index, int64_t number, int64_t answer, std::string text) {
    if (sink)
        sink({kind, index, passed * tick_ms, number, answer, std::move(text)});
}

}  // namespace fxsline
