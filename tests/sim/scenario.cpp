// One evening of telephony, the same to the byte on every machine: what leaves the process (datagrams, stream writes,
// reports, driver requests, PCM to the telephones) is written down with its time, and the digest of each section is
// compared with a committed one.
//
//     fxs_scenario DIGESTS [TRANSCRIPT]      compares; writes what happened, one line each
//     fxs_scenario --write DIGESTS           takes what happened for right

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/tlv.h"
#include "tests/sim/far_end.h"

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

class scenario final : public sim::surroundings, sim::far_end::ear_and_mouth {
public:
    explicit scenario(std::FILE* transcript_) : transcript(transcript_) {}
    void play();
    std::string digests;

private:
    void note(char const* what, int number, std::string_view data);
    void note_pcm(char const* what, int number, std::int16_t const* pcm);
    void begin(char const* name);

    void report(std::string_view data) override {
        note("report", 0, data);
        if (data[1] == 6)
            port = static_cast<unsigned char>(data[14]) << 8 | static_cast<unsigned char>(data[15]);
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
        for (std::size_t at = header_bytes; pcm && at < data.size();
             at += block_bytes) {  // in the machine's order
            std::int16_t block[sim::block_samples];
            std::memcpy(block, data.data() + at, sizeof block);
            note_pcm("samples", to.port, block);
        }
    }
    sim::path route(sim::endpoint const&, sim::endpoint const&) override { return link; }
    void arrived(sim::endpoint const&, sim::endpoint const& to, std::string_view data) override {
        for (sim::far_end& f : far)
            if (f.owns(to))
                f.arrived(to, data);
    }
    bool connecting(int stream, sim::endpoint const& to) override {
        far[0].connected(stream, to);
        return true;
    }
    void stream_data(int stream, std::string_view data) override {
        note("stream", stream, data);
        if (data[0] == 3)  // what call control sends is not framed
            far[0].stream_data(stream, data);
    }
    void stream_closed(int stream) override { note("closed", stream, {}); }
    void signal(std::string_view data) override { note("signal", 0, data); }
    void wake(int token) override { far[sim::far_end::index_of(token)].wake(token); }
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
    void command(int tag, str const& fields) { w->command(cmd_get_tlv_str(tag, fields)); }
    void call_command(int tag, int index, str const& fields) {
        command(tag, cmd_get_tlv_short(4, index) + fields);
    }

    std::FILE* transcript;
    sim::world* w = nullptr;
    sim::path link;
    sim::far_end far[2];
    speech line_speech[4] = {speech(1), speech(2), speech(3), speech(4)},
           far_speech[2] = {speech(5), speech(6)};
    int port = 0, serial = 0;
    std::string section;
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
        char line_[100];
        std::snprintf(line_, sizeof line_, "%-12s %6llu %016llx\n", section.c_str(),
                      static_cast<unsigned long long>(events), static_cast<unsigned long long>(hash));
        digests += line_;
    }
    section = name ? name : "";
    hash = 0xCBF29CE484222325u;
    events = 0;
    if (transcript)
        std::fprintf(transcript, "== %s\n", section.c_str());
}

str to_str(std::string_view data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), static_cast<int>(data.size()));
}

str address(int tag, sim::endpoint const& e) {
    return cmd_get_tlv_address(tag, ip_port(to_str(e.address_bytes()), e.port));
}

void scenario::call(int index, terms const& t) {
    call_command(16, index, cmd_get_tlv_str(22, str("call")));
    w->run_ms(5);
    sim::endpoint const here = (t.six ? sim::device_v6 : sim::device_v4).with_port(port);
    sim::far_end::plan p;
    p.rtp = t.six ? sim::v6(9, 5000 + 2 * serial) : sim::v4(203, 0, 113, 9, 5000 + 2 * serial);
    p.rtcp = p.rtp.with_port(p.rtp.port + 1);
    p.device_rtp = here;
    p.device_rtcp = here.with_port(port + 1);
    p.talk = t.codec;
    p.ptime_ms = t.ptime_ms;
    p.streams = t.streams;
    p.round_trip_known = false;
    p.ssrc = 0x10000u + static_cast<std::uint32_t>(serial);
    p.sequence = 65500;
    serial++;
    if (t.keyed) {
        p.sequence = 30000;
        p.in.key.assign(30, static_cast<char>('A' + index));
        p.out.key.assign(30, static_cast<char>('a' + index));
    }
    far[index].begin(*w, index, p, *this);
    auto const type = static_cast<unsigned char>(t.codec->payload_type),
               number = static_cast<unsigned char>(t.codec->codec);
    str fields = cmd_get_tlv_str(6, str(type, number)) + cmd_get_tlv_str(16, str(number, type)) +
                 cmd_get_tlv_short(17, t.ptime_ms) + cmd_get_tlv_long(33, 0x7000 + index) +
                 address(5, p.rtp) + address(26, p.rtcp) + cmd_get_tlv_short(34, t.streams) +
                 cmd_get_tlv_str(21, str(t.xr));
    if (t.events)
        fields += cmd_get_tlv_str(19, str(static_cast<unsigned char>(sim::event_type), 1));
    if (t.keyed)
        fields += cmd_get_tlv_str(23, to_str(p.out.key)) + cmd_get_tlv_str(24, to_str(p.in.key)) +
                  cmd_get_tlv_str(25, str('\x0A', 1));
    call_command(17, index, fields);
    call_command(18, index, cmd_get_tlv_short(18, t.line));
}

void scenario::end_calls() {
    for (int i = 0; i < 2; i++) {
        call_command(4, i, str::null);
        w->run_ms(1);
        far[i].end();
    }
    w->run_ms(200);
}

void scenario::play() {
    sim::format const &g729 = sim::formats[3], &pcma = sim::formats[2], &gsm = sim::formats[4],
                      &g722 = sim::formats[5];
    begin("start");
    sim::world world(*this, {.seed = 20, .clock_start = 0xFFFFFFFF - 1500});  // the clock wraps after 15 s
    w = &world;
    command(7, cmd_get_tlv_short(1, 7));
    command(13, cmd_get_tlv_long(20, 1000000));
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
    call_command(15, 0, cmd_get_tlv_short(34, 1) + cmd_get_tlv_str(13, str("tunnelled")));
    w->run_ms(20);
    w->stream_close(far[0].media_stream());
    w->run_ms(500);
    end_calls();
    for (bool const events_ : {true, false}) {
        begin(events_ ? "events" : "in-band");
        call(0, {.codec = &gsm, .events = events_});
        w->run_ms(300);
        for (int digit = 3; digit < 12; digit += 4)
            call_command(10, 0, cmd_get_tlv_short(19, digit));
        far[0].send_event(7);
        w->run_ms(2200);
        end_calls();
    }
    begin("conference");
    call(0, {.codec = &g729, .line = 1});
    call(1, {.codec = &pcma, .line = 1});
    w->run_ms(3000);
    call_command(4, 0, str::null);
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
    far[0].end();
    for (int kind = 1; kind < 6; kind++) {
        call_command(12, 0, cmd_get_tlv_short(28, kind) + cmd_get_tlv_short(29, 1));
        w->run_ms(400);
    }
    command(22, cmd_get_tlv_short(27, 2));
    command(11, cmd_get_tlv_short(27, 3));
    command(8, cmd_get_tlv_str(15, str("to the device")));
    w->driver_text("off hook\r\non hook\n");
    w->signal_bytes("from the device");
    command(7, cmd_get_tlv_short(1, 9));
    w->deliver(sim::v4(198, 51, 100, 1, 9), sim::device_v4.with_port(port),
               std::string_view("\0\1\0\0stun........", 16));
    w->run_ms(2500);
    command(22, cmd_get_tlv_short(27, 0));
    end_calls();
    if (w->trouble() || !w->idle())
        sim::violated(w->trouble() ? w->trouble() : "the process is not idle in the end");
    begin(nullptr);
}

std::string read_file(char const* path) {
    std::string text;
    if (std::FILE* const f = std::fopen(path, "r")) {
        for (int c; (c = std::fgetc(f)) != EOF;)
            text += static_cast<char>(c);
        std::fclose(f);
    }
    return text;
}

}  // namespace

void sim::violated(std::string_view what, long long value) {
    std::printf("%.*s (%lld)\n", static_cast<int>(what.size()), what.data(), value);
    std::exit(1);
}

int main(int argc, char** argv) {
    if (argc < 2)
        return std::printf("fxs_scenario DIGESTS [TRANSCRIPT] | --write DIGESTS\n"), 2;
    bool const write = std::strcmp(argv[1], "--write") == 0 && argc == 3;
    std::FILE* const transcript = !write && argc == 3 ? std::fopen(argv[2], "w") : nullptr;
    static scenario evening(transcript);
    evening.play();
    if (transcript)
        std::fclose(transcript);
    std::fputs(evening.digests.c_str(), stdout);
    if (write) {
        std::FILE* const f = std::fopen(argv[2], "w");
        return !f || std::fputs(evening.digests.c_str(), f) < 0 || std::fclose(f) != 0;
    }
    std::string const wanted = read_file(argv[1]);
    if (wanted == evening.digests)
        return 0;
    std::printf("differs from what %s has:\n%s", argv[1], wanted.c_str());
    return 1;
}
