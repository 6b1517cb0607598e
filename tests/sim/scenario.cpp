// One evening of telephony, the same to the byte on every machine: what leaves the process (datagrams, stream writes,
// reports, driver requests, PCM to the telephones) is written down with its time, and the digest of each section is
// compared with a committed one.
//
//     fxs_scenario [--extensions LIST] DIGESTS [TRANSCRIPT]
//
// compares; prints the digests; writes what happened, one line each.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/extensions.h"
#include "lib/protocol.h"
#include "lib/tlv.h"
#include "tests/sim/telephone_network.h"

using namespace protocol;

namespace {

constexpr std::size_t header_bytes = 12, block_bytes = 2 * sim::block_samples;

/// Integer arithmetic alone: a gliding pulse train and some noise through two resonances, in syllables.
class speech {
public:
    explicit speech(std::uint64_t seed) : random(seed) {}
    void say(std::int16_t* pcm) {
        for (int i = 0; i < sim::block_samples; i++) {
            if (left-- == 0) {
                left = random.between(800, 2400);
                pause = random.chance(250);
                pitch = random.between(35, 90);
                for (int& f : formant)
                    f = random.between(-14000, 30000);
            }
            std::int32_t x = random.between(-60, 60) * (pause ? 1 : 4);
            if (++since >= pitch)
                since = 0, x += pause ? 0 : 6000;
            for (int k = 0; k < 2; k++) {  // y = x + c y1 - 0.94 y2, c in Q14
                std::int32_t const y = x + formant[k] * history[k][0] / 16384 - 15400 * history[k][1] / 16384;
                history[k][1] = history[k][0];
                x = history[k][0] = std::max(-60000, std::min(60000, y));
                x /= 2;
            }
            pcm[i] = static_cast<std::int16_t>(std::max(-30000, std::min(30000, x)));
        }
    }

private:
    sim::random_source random;
    int left = 0, since = 0, pitch = 50, formant[2] = {};
    bool pause = false;
    std::int32_t history[2][2] = {};
};

class scenario final : public sim::telephone_network {
public:
    explicit scenario(std::FILE* to) : transcript(to) {}
    void play();
    sim::bytes digests;

private:
    void note(char const* what, int number, std::string_view data);
    void note_pcm(char const* what, int number, std::int16_t const* pcm);
    void begin(char const* name);

    void report(std::string_view data) override {
        note("report", 0, data);
        telephone_network::report(data);
    }
    void line(int l, std::int16_t const* heard, std::int16_t* said) override {
        if (heard)
            note_pcm("line", l, heard);
        line_speech[l].say(said);
    }
    int request(int l, unsigned number) override {
        note("request", l, std::to_string(number));
        return 0;
    }
    void sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view data) override {
        note("from port", from.port, to.address_bytes());
        bool const pcm = section == "linear" && (data[1] & 0x7F) == sim::formats[0].payload_type;
        note("to port", to.port, pcm ? data.substr(0, header_bytes) : data);
        for (std::size_t at = header_bytes; pcm && at < data.size(); at += block_bytes) {  // in the machine's order
            std::int16_t block[sim::block_samples];
            std::memcpy(block, data.data() + at, sizeof block);
            note_pcm("samples", to.port, block);
        }
    }
    sim::path route(sim::endpoint const&, sim::endpoint const&) override { return link; }
    void stream_data(int stream, std::string_view data) override {
        note("stream", stream, data);
        if (data[0] == 3)  // what call control sends is not framed
            telephone_network::stream_data(stream, data);
    }
    void stream_closed(int stream) override { note("closed", stream, {}); }
    void signal(std::string_view data) override { note("signal", 0, data); }
    void say(int f, std::int16_t* pcm) override { far_speech[f].say(pcm); }
    void hear(int f, std::int16_t const* pcm) override { note_pcm("far end", f, pcm); }

    struct terms {
        sim::format const* codec;
        int ptime_ms = 20, line = 0;
        bool six = false, streams = false, keyed = false, events = true;
        char const* xr = "";
    };
    void call(int index, terms const& t);
    void end_calls();

    std::FILE* transcript;
    sim::path link;
    speech line_speech[4] = {speech(1), speech(2), speech(3), speech(4)}, far_speech[2] = {speech(5), speech(6)};
    int serial = 0;
    sim::bytes section;
    std::uint64_t hash = 0, events = 0;
};

/// FNV-1a over time, kind, number and bytes.
void scenario::note(char const* what, int number, std::string_view data) {
    long long const now = w ? w->now() / sim::us : 0;
    std::string const head = std::to_string(now) + " " + what + " " + std::to_string(number) + " ";
    for (std::string_view const part : {std::string_view(head), data})
        for (char const c : part)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    events++;
    if (!transcript)
        return;
    std::fputs(head.c_str(), transcript);
    for (char const c : data)
        std::fprintf(transcript, "%02X", static_cast<unsigned char>(c));
    std::fputc('\n', transcript);
}

void scenario::note_pcm(char const* what, int number, std::int16_t const* pcm) {
    char little_endian[2 * sim::block_samples];
    for (int i = 0; i < sim::block_samples; i++) {
        little_endian[2 * i] = static_cast<char>(pcm[i] & 0xFF);
        little_endian[2 * i + 1] = static_cast<char>(pcm[i] >> 8 & 0xFF);
    }
    note(what, number, {little_endian, sizeof little_endian});
}

/// Closes the section before; null: there is no other.
void scenario::begin(char const* name) {
    if (!section.empty()) {
        char row[100];
        std::snprintf(row, sizeof row, "%-12s %6llu %016llx\n", section.c_str(),
                      static_cast<unsigned long long>(events), static_cast<unsigned long long>(hash));
        digests += row;
    }
    section = name ? name : "";
    hash = 0xCBF29CE484222325u;
    events = 0;
    if (transcript)
        std::fprintf(transcript, "== %s\n", section.c_str());
}

void scenario::call(int index, terms const& t) {
    call_command(cmd_open::tag, index, cmd_get_tlv_str(cmd_open::call_id, str("call")));
    w->run_ms(5);
    sim::far_end::plan p;
    p.rtp = t.six ? sim::v6(9, 5000 + 2 * serial) : sim::v4(203, 0, 113, 9, 5000 + 2 * serial);
    p.device_rtp = (t.six ? sim::device_v6 : sim::device_v4).with_port(rtp_ports[index]);
    p.talk = t.codec;
    p.ptime_ms = t.ptime_ms;
    p.streams = t.streams;
    p.round_trip_known = false;
    p.ssrc = 0x10000u + static_cast<std::uint32_t>(serial);
    p.sequence = t.keyed ? 30000 : 65500;
    serial++;
    if (t.keyed) {
        p.in.key.assign(30, static_cast<char>('A' + index));
        p.out.key.assign(30, static_cast<char>('a' + index));
    }
    fars[index].begin(*w, index, p, *this);
    auto const ssrc = static_cast<std::uint32_t>(0x7000 + index);
    call_command(cmd_media::tag, index,
                 codec_fields(*t.codec, t.codec, 1, t.ptime_ms, ssrc, t.events) + destination_fields(p.rtp, t.streams) +
                     cmd_get_tlv_str(cmd_media::xr_mode, str(t.xr)) + (t.keyed ? key_fields(p.out, p.in) : str::null));
    call_command(cmd_tdm_channel::tag, index, cmd_tdm_channel::slot, t.line);
}

void scenario::end_calls() {
    for (int i = 0; i < 2; i++) {
        call_command(cmd_end::tag, i, str::null);
        w->run_ms(1);
        fars[i].end();
    }
    w->run_ms(200);
}

void scenario::play() {
    sim::format const &g729 = sim::formats[3], &pcma = sim::formats[2], &gsm = sim::formats[4], &g722 = sim::formats[5];
    begin("start");
    start({.seed = 20, .clock_start = 0xFFFFFFFF - 1500});  // the clock wraps after 15 s
    command(cmd_log_level::tag, cmd_log_level::level, 7);
    command(cmd_ntp_offset::tag, cmd_get_tlv_long(cmd_ntp_offset::seconds, 1000000));
    w->run_ms(1100);
    for (sim::format const& f : sim::formats) {
        begin(f.name);
        link = {2000, 1000};
        call(0, {.codec = &f, .ptime_ms = &f == &g722 ? 30 : 20, .six = &f == &g729});
        w->run_ms(2000);
        end_calls();
    }
    begin("SRTP");
    call(0, {.codec = &pcma, .keyed = true, .xr = "voip-metrics rcvr-rtt"});
    w->run_ms(4500);
    end_calls();
    begin("TCP");
    call(0, {.codec = &g729, .ptime_ms = 40, .streams = true});
    w->run_ms(3000);
    call_command(cmd_tunnel::tag, 0,
                 cmd_get_tlv_short(cmd_tunnel::tcp, 1) + cmd_get_tlv_str(cmd_tunnel::rtp_data, str("tunnelled")));
    w->run_ms(20);
    w->stream_close(fars[0].media_stream());
    w->run_ms(500);
    end_calls();
    for (bool const as_events : {true, false}) {
        begin(as_events ? "events" : "in-band");
        call(0, {.codec = &gsm, .events = as_events});
        w->run_ms(300);
        for (int digit = 3; digit < 12; digit += 4)
            call_command(cmd_dtmf::tag, 0, cmd_dtmf::digit, digit);
        fars[0].send_event(7);
        w->run_ms(2200);
        end_calls();
    }
    begin("conference");
    call(0, {.codec = &g729, .line = 1});
    call(1, {.codec = &pcma, .line = 1});
    w->run_ms(3000);
    call_command(cmd_end::tag, 0, str::null);
    w->run_ms(500);
    end_calls();
    begin("lossy");
    link = {40000, 70000, 80, 40};
    call(0, {.codec = &g729,
             .line = 2,
             .xr = "pkt-loss-rle pkt-dup-rle=200 pkt-rcpt-times=300 rcvr-rtt stat-summary voip-metrics"});
    w->run_ms(8000);
    end_calls();
    begin("devices");
    call(0, {.codec = &pcma, .line = 3});
    fars[0].end();
    for (int kind = 1; kind < 6; kind++) {
        call_command(cmd_playback::tag, 0,
                     cmd_get_tlv_short(cmd_playback::tone_kind, kind) + cmd_get_tlv_short(cmd_playback::tone_set, 1));
        w->run_ms(400);
    }
    command(cmd_led::tag, cmd_led::pattern, 2);
    command(cmd_reset_base::tag, cmd_reset_base::command, 3);
    command(cmd_signal::tag, cmd_get_tlv_str(cmd_signal::data, str("to the device")));
    w->driver_text("off hook\r\non hook\n");
    w->signal_bytes("from the device");
    command(cmd_log_level::tag, cmd_log_level::level, 9);
    w->deliver(sim::v4(198, 51, 100, 1, 9), sim::device_v4.with_port(rtp_ports[0]),
               std::string_view("\0\1\0\0stun........", 16));
    w->run_ms(2500);
    command(cmd_led::tag, cmd_led::pattern, 0);
    end_calls();
    begin(nullptr);
    finish();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::strcmp(argv[1], "--extensions") == 0 && extensions.add(argv[2]))
        argc -= 2, argv += 2;
    std::FILE* const digests = argc > 1 ? std::fopen(argv[1], "r") : nullptr;
    if (!digests)
        return std::printf("fxs_scenario [--extensions LIST] DIGESTS [TRANSCRIPT]\n"), 2;
    char wanted[4096] = {};
    std::size_t const size = std::fread(wanted, 1, sizeof wanted, digests);
    std::fclose(digests);
    std::FILE* const transcript = argc > 2 ? std::fopen(argv[2], "w") : nullptr;
    static scenario evening(transcript);
    evening.play();
    if (transcript)
        std::fclose(transcript);
    std::fputs(evening.digests.c_str(), stdout);
    if (std::string_view(wanted, size) == std::string_view(evening.digests))
        return 0;
    std::printf("differs from what %s has:\n%s", argv[1], wanted);
    return 1;
}
