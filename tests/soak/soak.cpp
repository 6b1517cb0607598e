// The process in real time under calls of every kind, for as long as wanted: does it lose a heartbeat, a descriptor, a
// block, memory, or say something that nothing explains? docs/soak.md says how to read what is printed.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <iomanip>
#include <list>
#include <set>

#include "lib/protocol.h"
#include "tests/soak/far_end.h"
#include "tests/soak/report_audit.h"
#include "tests/support/signals.h"
#include "tools/protocol/codecs.h"

using namespace std::chrono_literals;

namespace {

constexpr auto patience = 20s;
constexpr std::uint8_t event_payload_type = 101;
constexpr int pauses = 6;                  // moments without calls, at which all must be as in the beginning
constexpr double judged_from_minutes = 5;  // a shorter run says nothing about memory and lateness
constexpr long most_growth_kb = 256;       // after the first pause: rare sizes still find their first block
constexpr long most_descriptors = protocol::call_count * 6 + protocol::slot_count;

constexpr network networks[] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 60}, {5, 2, 40}, {30, 10, 120}, {100, 0, 0}};
constexpr char const* xr_modes[] = {
    "", "", "rcvr-rtt stat-summary voip-metrics",
    "pkt-loss-rle pkt-dup-rle pkt-rcpt-times=200 rcvr-rtt stat-summary voip-metrics"};

/// Calls of random length between lines and with far ends, two of them on one line as a conference, every codec, with
/// and without keys, UDP and TCP, both families; digits, tones, changes, strangers.
class calls {
public:
    calls(protocol::control_client& process, dice& random) : client(process), decide(random) {
        for (std::uint16_t channel = 0; channel < protocol::call_count; channel++)
            free_channels.insert(channel);
    }
    /// Ends what is over and, now and then, begins a call or changes something.
    void step() {
        for (call& c : running)
            if (c.ends <= steady::now())
                end(c);
        running.remove_if([](call const& c) { return c.legs.empty(); });
        if (!free_channels.empty() && decide.chance(20))
            begin();
        if (running.empty() || !decide.chance(30))
            return;
        changes++;
        call& c = *std::next(running.begin(), decide.below(static_cast<int>(running.size())));
        (this->*all_changes[decide.below(std::size(all_changes))])(c);
    }
    void serve() {
        for (call& c : running)
            if (c.far)
                c.far->serve();
    }
    void end_all() {
        for (call& c : running)
            end(c);
        running.clear();
    }
    /// The answer comes when all that was asked for before has been done.
    void ask_driver() {
        send(protocol::reset_base_command{.command = 3});
        questions++;
    }

    unsigned begun = 0, failed = 0, changes = 0, questions = 0;
    unsigned far_packets = 0, far_gaps = 0;  ///< of calls that are over

private:
    struct leg {
        std::uint16_t channel, line, rtp_port;
        protocol::address rtp, rtcp;  ///< where it sends to
    };
    struct call {
        std::vector<leg> legs;         ///< two: between lines
        std::unique_ptr<far_end> far;  ///< of a single one
        protocol::media_command keys;  ///< what stays when the codec changes
        steady::time_point ends;
    };

    template <class command>
    void send(command const& c) {
        client.send(protocol::encode(c));
    }
    protocol::bytes random_bytes(int n) {
        protocol::bytes data(static_cast<std::size_t>(n));
        for (std::uint8_t& byte : data)
            byte = static_cast<std::uint8_t>(decide.word());
        return data;
    }
    std::uint16_t below(int n) { return static_cast<std::uint16_t>(decide.below(n)); }
    leg const& any_leg(call const& c) { return c.legs[below(static_cast<int>(c.legs.size()))]; }

    void begin() {
        call c;
        int const longest_ms = 500 << decide.below(10);  // up to four minutes, half of them below 12 s
        c.ends = steady::now() + std::chrono::milliseconds(decide.between(longest_ms / 2, longest_ms));
        c.keys.event_payload_type = decide.chance(70) ? event_payload_type : std::uint8_t{0};
        c.keys.xr_mode = xr_modes[below(std::size(xr_modes))];
        if (decide.chance(50)) {
            c.keys.srtp_rx_key = c.keys.srtp_tx_key = random_bytes(30);
            c.keys.srtp_tag_bytes = decide.chance(50) ? std::uint8_t{10} : std::uint8_t{4};
            c.keys.srtp_mki = random_bytes(decide.chance(30) ? 4 : 0);
        }
        bool const far = decide.chance(60) || free_channels.size() < 2;
        if (!open_leg(c) || (!far && !open_leg(c))) {
            failed++;
            return end(c);
        }
        far ? aim_at_far_end(c) : aim_at_each_other(c);
        set_media(c);
        for (leg const& l : c.legs)
            send(protocol::tdm_command{.call = l.channel, .slot = l.line});
        running.push_back(std::move(c));
        begun++;
    }
    /// On a line that has room for one more.
    bool open_leg(call& c) {
        std::uint16_t const channel = *std::next(free_channels.begin(), below(int(free_channels.size())));
        std::uint16_t line = below(protocol::slot_count);
        while (on_line[line] == 2)
            line = static_cast<std::uint16_t>((line + 1) % protocol::slot_count);
        send(protocol::open_command{.call = channel, .call_id = decide.chance(80) ? "soak" : ""});
        auto const reply = client.wait_for<protocol::open_reply>(
            patience, [&](protocol::open_reply const& r) { return r.call == channel; });
        if (!reply || reply->rtp_port == 0)
            return false;
        free_channels.erase(channel);
        on_line[line]++;
        c.legs.push_back({channel, line, reply->rtp_port, {}, {}});
        return true;
    }
    void aim_at_far_end(call& c) {
        c.keys.tcp = decide.chance(30);
        c.far = std::make_unique<far_end>(*c.keys.tcp, decide.chance(40),
                                          networks[below(std::size(networks))], decide);
        c.legs[0].rtp = c.far->address(0);
        c.legs[0].rtcp = c.far->address(1);
    }
    void aim_at_each_other(call& c) {
        protocol::bytes const ip = *protocol::parse_ip(decide.chance(50) ? "::1" : "127.0.0.1");
        for (std::size_t i = 0; i < 2; i++) {
            std::uint16_t const port = c.legs[1 - i].rtp_port;
            c.legs[i].rtp = {ip, port};
            c.legs[i].rtcp = {ip, static_cast<std::uint16_t>(port + 1)};
        }
    }
    void end(call& c) {
        for (leg const& l : c.legs) {
            send(protocol::end_command{.call = l.channel});
            free_channels.insert(l.channel);
            on_line[l.line]--;
        }
        c.legs.clear();
        far_packets += c.far ? c.far->packets : 0;
        far_gaps += c.far ? c.far->gaps : 0;
    }

    /// Another codec and packet time, and with them a new SSRC; the keys once more.
    void set_media(call& c) {
        constexpr std::uint16_t packet_times_ms[] = {10, 20, 20, 30, 60};
        protocol::media_command media = c.keys;
        for (protocol::codec_format const& codec : protocol::codec_formats)
            if (codec.number != protocol::codec_number::telephone_event)
                media.map.push_back(protocol::usual_choice(codec));
        media.send = media.map[below(static_cast<int>(media.map.size()))];
        media.ptime_ms = packet_times_ms[below(std::size(packet_times_ms))];
        for (leg const& l : c.legs) {
            media.call = l.channel;
            media.rtp_dest = l.rtp;
            media.rtcp_dest = l.rtcp;
            send(media);
        }
    }
    void press_key(call& c) { send(protocol::dtmf_command{.call = any_leg(c).channel, .digit = below(13)}); }
    void play_tone(call& c) {
        send(protocol::playback_command{.call = any_leg(c).channel, .tone_set = below(17), .kind = below(5)});
    }
    /// Off its line and on again.
    void change_line(call& c) {
        leg const& l = any_leg(c);
        send(protocol::tdm_command{.call = l.channel});
        send(protocol::tdm_command{.call = l.channel, .slot = l.line});
    }
    void hang_up(call& c) {
        if (c.far && decide.chance(30))
            c.far->hang_up();
    }
    /// Noise of strangers on both ports.
    void disturb(call& c) {
        descriptor const stranger(socket(AF_INET, SOCK_DGRAM, 0));
        for (int n = decide.below(20); n > 0; n--) {
            protocol::bytes noise = random_bytes(decide.between(1, 1400));
            noise[0] &= 0x3F;  // no RTP: that could take the call over
            sockaddr_in const to{AF_INET,
                                 htons(static_cast<std::uint16_t>(any_leg(c).rtp_port + below(2))),
                                 {htonl(INADDR_LOOPBACK)},
                                 {}};
            sendto(stranger.get(), noise.data(), noise.size(), 0, reinterpret_cast<sockaddr const*>(&to),
                   sizeof to);
        }
    }
    void blink(call&) { send(protocol::led_command{.pattern = below(5)}); }
    void ask(call&) { ask_driver(); }
    static constexpr void (calls::*all_changes[])(call&) = {
        &calls::press_key, &calls::press_key, &calls::set_media, &calls::play_tone, &calls::change_line,
        &calls::hang_up,   &calls::disturb,   &calls::blink,     &calls::ask};

    protocol::control_client& client;
    dice& decide;
    std::list<call> running;
    std::set<std::uint16_t> free_channels;
    int on_line[protocol::slot_count] = {};
};

struct options {
    double minutes = 1;
    unsigned seed = 1;
    bool real_time = false;
};

class soak {
public:
    explicit soak(options const& chosen)
        : wanted(chosen),
          decide(chosen.seed),
          lines(speakers(chosen.seed)),
          port(free_port()),
          process(arguments()),
          client(protocol::control_client::connect_udp("127.0.0.1", port)),
          traffic(client, decide) {
        if (chosen.real_time)
            take_priority(0);  // the telephones keep theirs
        int const room = 8 << 20;
        setsockopt(client.fd(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
        for (unsigned line = 0; line < protocol::slot_count; line++)
            lines.bank().line(line).tap_heard({});
        if (!client.start_session(patience))
            throw std::runtime_error("the process does not answer: " + process.error_output());
        client.send(protocol::encode(protocol::log_level_command{.level = 9}));
    }

    /// Whether nothing was wrong.
    bool run() {
        settle();
        before = usage(process.pid());
        auto const started = steady::now();
        auto const length = std::chrono::duration_cast<steady::duration>(60s * wanted.minutes);
        auto next_minute = started + 1min;
        long warm_kb = 0;
        for (int pause = 1; pause <= pauses; pause++) {
            while (steady::now() < started + length * pause / pauses && process.alive()) {
                live_for(50ms);
                traffic.step();
                most = std::max(most, usage(process.pid()).descriptors);
                if (steady::now() >= next_minute)
                    print_state(started), next_minute += 1min;
            }
            traffic.end_all();
            settle();
            usage const now(process.pid());
            leaked += now.descriptors - before.descriptors;
            warm_kb = pause == 1 ? now.resident_kb : warm_kb;
            grown_kb = now.resident_kb - warm_kb;
        }
        print_state(started);
        for (auto const& [pattern, count] : audit.counts)
            std::cout << std::setw(10) << count << "  " << pattern << "\n";
        return judge();
    }

private:
    static std::vector<fxsline::speech> speakers(unsigned seed) {
        std::vector<fxsline::speech> all;
        for (unsigned i = 0; i < protocol::slot_count; i++)
            all.push_back(
                fxsline::speech::recording(signals::speech_like(80000, 12000, seed + i), true, "voice"));
        return all;
    }
    std::vector<std::string> arguments() const {
        std::vector<std::string> all{"--tdm", lines.tdm_path(), "--log", "1", "--port", std::to_string(port)};
        if (!wanted.real_time)
            all.push_back("--debug");
        return all;
    }
    void live_for(steady::duration span) {
        for (auto const until = steady::now() + span; steady::now() < until; traffic.serve())
            while (auto const report = client.receive(2ms)) {
                audit.take(*report);
                traffic.serve();
            }
    }
    /// Until all that was asked for has been done and has had its consequences.
    void settle() {
        traffic.ask_driver();
        for (auto const until = steady::now() + patience;
             audit.answers < traffic.questions && steady::now() < until;)
            live_for(10ms);
        live_for(200ms);
    }
    std::uint64_t total(std::uint64_t fxsline::line_counters::*counter) {
        return lines.mount().locked([&] {
            std::uint64_t sum = 0;
            for (unsigned i = 0; i < protocol::slot_count; i++)
                sum += lines.bank().line(i).counters().*counter;
            return sum;
        });
    }
    void print_state(steady::time_point started) {
        usage const now(process.pid());
        double const s = std::chrono::duration<double>(steady::now() - started).count();
        std::cout << std::fixed << std::setprecision(2) << s / 60 << " min: " << traffic.begun << " calls, "
                  << traffic.changes << " changes, RSS " << now.resident_kb << " kB (peak " << now.peak_kb
                  << "), descriptors " << now.descriptors << " (most " << most << "), CPU "
                  << 100 * (now.cpu_s - before.cpu_s) / s << " %, " << audit.heartbeats
                  << " heartbeats (longest gap " << audit.longest_gap_s << " s), " << audit.log_lines
                  << " log lines (unexplained " << audit.unexplained << "), overruns "
                  << total(&fxsline::line_counters::overruns) << ", underruns "
                  << total(&fxsline::line_counters::underruns) << ", far packets " << traffic.far_packets
                  << " (gaps " << traffic.far_gaps << ")\n  late ms: process " << clock.process.text()
                  << "\n           clock   " << clock.clock.text() << "\n           control "
                  << clock.control.text() << std::endl;
    }
    bool judge() {
        bool const short_run = wanted.minutes < judged_from_minutes;
        unsigned const machine_late = clock.control.above_10_ms() + clock.clock.above_10_ms();
        long const machine_worst_ms = std::max(clock.control.worst_ms(), clock.clock.worst_ms());
        double const most_gap_s = 1.95 + static_cast<double>(machine_worst_ms) / 1000;
        struct {
            bool holds;
            char const* rule;
        } const rules[] = {
            {process.alive() && audit.answers == traffic.questions, "the process lives and answers"},
            {traffic.begun > 0 && traffic.failed == 0, "every call could be begun"},
            {audit.unexplained == 0, "every report and log line is explained"},
            {audit.longest_gap_s < most_gap_s, "no heartbeat was lost"},
            {leaked == 0 && most <= before.descriptors + most_descriptors, "descriptors come back"},
            {traffic.far_packets > 0 && traffic.far_gaps == 0, "far ends got every packet, in order"},
            {short_run || grown_kb <= most_growth_kb, "memory stays after the first pause"},
            {short_run || clock.process.above_10_ms() <= 2 * machine_late + 2,
             "late only when the machine is"},
            {short_run || total(&fxsline::line_counters::overruns) == 0 || machine_worst_ms > 40,
             "no block that a line said was lost"},
        };
        for (auto const& [holds, rule] : rules)
            std::cout << (holds ? "ok      " : "FAILED  ") << rule << "\n";
        std::cout << "memory grew by " << grown_kb << " kB after the first pause, descriptors leaked "
                  << leaked << "; repeat with --seed " << wanted.seed << std::endl;
        return std::ranges::all_of(rules, [](auto const& r) { return r.holds; });
    }

    options wanted;
    dice decide;
    telephones lines;
    std::uint16_t port;
    media_process process;
    protocol::control_client client;
    calls traffic;
    report_audit audit;
    line_clock clock{lines, wanted.real_time};
    usage before{process.pid()};
    long leaked = 0, most = 0, grown_kb = 0;
};

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    CLI::App app("Runs fxsmedia in real time under calls of every kind and watches it.");
    app.add_option("--minutes", chosen.minutes, "how long")->capture_default_str();
    app.add_option("--seed", chosen.seed, "of all decisions")->capture_default_str();
    app.add_flag("--real-time", chosen.real_time, "process and telephones with real-time priority");
    app.add_option_function<std::string>(
        "--process", [](std::string const& path) { setenv("FXSMEDIA_PROCESS", path.c_str(), 1); },
        "the process to be watched instead of that of this build");
    CLI11_PARSE(app, argc, argv);
    if (chosen.real_time && !take_priority(interrupt_priority))
        return std::cerr << "no right to real-time priority\n", 1;
    return soak(chosen).run() ? 0 : 1;
}
