#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <future>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"
#include "tools/fxsheard/comparison.h"

using namespace std::chrono_literals;

namespace {

/// One codec with which ffmpeg is the partner, in its own words.
struct partner {
    char const* name;
    protocol::codec_choice codec;
    char const* encoder;  ///< ffmpeg's encoder with its options; null: it has none
    bool sends;         ///< it sends packets of whole blocks; else it writes a file, which is sent from here
    int payload_bytes;  ///< of 20 ms
    char const* rtp_name;  ///< as a=rtpmap names it; null: it reads a file, whose packets are collected here
    double least_similarity;
    double level_db = 0;  ///< what the line hears, relative to what ffmpeg was given
};

/// Our G.722 coder keeps to the 14 bits of the Recommendation's interface, ffmpeg's drives it one bit higher.
constexpr double g722_level_db = 6.02;

constexpr partner partners[] = {
    {"pcmu", {1, 0}, "-c:a pcm_mulaw -af asetnsamples=160", true, 160, "PCMU/8000", 0.98},
    {"pcma", {2, 8}, "-c:a pcm_alaw -af asetnsamples=160", true, 160, "PCMA/8000", 0.98},
    {"gsm", {4, 3}, "-c:a libgsm -f gsm", false, 33, "GSM/8000", 0.8},
    {"g722", {5, 9}, "-c:a g722 -ar 16000", true, 160, "G722/8000", 0.85, g722_level_db},
    {"g726", {6, 97}, "-c:a g726le -b:a 32k -f g726le", false, 80, "G726-32/8000", 0.9},
    {"g729", {3, 18}, nullptr, false, 20, nullptr, 0.6},
};

/// A telephone that says something and ffmpeg at the other end of the call.
class RtpPartner : public testing::TestWithParam<partner> {
protected:
    void SetUp() override {
        if (!FXSMEDIA_G729 && std::string_view(with.name) == "g729")
            GTEST_SKIP() << "built without G.729";
    }
    std::string file(std::string const& name) const {
        return testing::TempDir() + with.name + std::to_string(::getpid()) + name;
    }
    void write_said() const {
        std::ofstream(file(".raw"), std::ios::binary)
            .write(reinterpret_cast<char const*>(said.data()), static_cast<std::streamsize>(2 * said.size()));
        ffmpeg("-f s16le -ar 8000 -ac 1 -i " + file(".raw") + " " + file("said.wav"));
    }
    static void ffmpeg(std::string const& arguments) {
        EXPECT_EQ(std::system(("ffmpeg -v error -y " + arguments + " </dev/null >/dev/null").c_str()), 0);
    }
    /// Puts call 0, with the partner at this port, on line 0; the process's port.
    std::uint16_t call(std::uint16_t remote_port) {
        std::uint16_t const port = process.open(0).rtp_port;
        process.send(protocol::media_command{.call = 0,
                                             .send = with.codec,
                                             .map = {with.codec},
                                             .rtp_dest = protocol::address{{127, 0, 0, 1}, remote_port}});
        process.put_on_line(0, 0);
        lines.wait_for_open(1);
        return port;
    }
    /// Lets the telephones live in real time, which the partner does, until it has ended. With a head start the
    /// partner's bursts and the machine's load can't leave the line without audio.
    void run_with(std::string const& arguments, std::chrono::milliseconds head_start) {
        auto const partner_end = std::async(std::launch::async, [&] { ffmpeg(arguments); });
        partner_end.wait_for(head_start);
        fxsline::tick_clock clock;
        while (partner_end.wait_for(1ms) != std::future_status::ready)
            lines.run(static_cast<int>(clock.due()));
    }
    /// Each packet some way ahead of the telephones' clock, so that the line never waits for one that is on its way.
    void send_file(std::string const& name, std::uint16_t port) {
        constexpr unsigned head_start = 4;
        auto sender = protocol::control_client::connect_udp("127.0.0.1", port);
        std::ifstream coded(name, std::ios::binary);
        std::string payload(static_cast<std::size_t>(with.payload_bytes), 0);
        for (unsigned n = 0; coded.read(payload.data(), with.payload_bytes); n++) {
            auto const number = static_cast<std::uint8_t>(n);
            protocol::bytes packet{0x80, with.codec.payload_type, 1, number, 0, 0, 0, 0, 1, 2, 3, 4};
            packet.insert(packet.end(), payload.begin(), payload.end());
            sender.send(packet);
            if (n >= head_start)
                lines.run(2);
        }
    }
    /// Two seconds of the line's packets, taken one by one.
    void collect_file(std::string const& name, protocol::control_client& receiver) {
        std::ofstream coded(name, std::ios::binary);
        for (int n = 0; n < 100; n++) {
            lines.run(2);
            auto const packet = receiver.receive_datagram(patience).value_or(protocol::bytes());
            ASSERT_EQ(packet.size(), 12u + static_cast<unsigned>(with.payload_bytes));
            coded.write(reinterpret_cast<char const*>(packet.data()) + 12, with.payload_bytes);
        }
    }
    void expect_alike(samples const& original, samples const& heard, int longest_delay_ms) const {
        comparison const result = compare(original, heard, longest_delay_ms);
        EXPECT_GE(result.similarity, with.least_similarity);
        EXPECT_NEAR(result.level_db, with.level_db, 1.5);
    }

    partner const with = GetParam();
    signals::samples const said = signals::speech_like(3 * 8000, 12000, 12);
    telephones lines{{fxsline::speech::recording(said, true, "test")}};
    controlled_process process{lines};
};

TEST_P(RtpPartner, IsHeardOnTheLine) {
    if (with.encoder == nullptr)
        GTEST_SKIP() << "ffmpeg can't send it";
    write_said();
    std::uint16_t const port = call(free_port());
    std::string const input = "-i " + file("said.wav") + " -t 1.5 " + with.encoder + " ";
    if (with.sends) {
        run_with("-re " + input + "-payload_type " + std::to_string(with.codec.payload_type) +
                     " -f rtp rtp://127.0.0.1:" + std::to_string(port) +
                     "?pkt_size=" + std::to_string(with.payload_bytes + 12),
                 500ms);
        lines.run(100);
    } else {
        ffmpeg(input + file("coded"));
        send_file(file("coded"), port);
    }
    expect_alike({said.begin(), said.begin() + 10000}, lines.heard(0), 1500);
}

TEST_P(RtpPartner, HearsTheLine) {
    std::uint16_t const port = free_port();
    std::string const to_wav = " -t 2 -ar 8000 -ac 1 " + file("heard.wav");
    if (with.rtp_name) {
        std::string const type = std::to_string(with.codec.payload_type);
        std::ofstream(file(".sdp")) << "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=call\nc=IN IP4 127.0.0.1\nt=0 0\n"
                                    << "m=audio " << port << " RTP/AVP " << type << "\n"
                                    << "a=rtpmap:" << type << " " << with.rtp_name << "\n";
        call(port);
        run_with("-analyzeduration 0 -protocol_whitelist file,udp,rtp -i " + file(".sdp") + to_wav, 0ms);
    } else {
        auto receiver = protocol::control_client::connect_udp("127.0.0.1", call(port), port);
        collect_file(file("coded"), receiver);
        ffmpeg("-f " + std::string(with.name) + " -i " + file("coded") + to_wav);
    }
    signals::samples twice = said;
    twice.insert(twice.end(), said.begin(), said.end());
    expect_alike(read_wav(file("heard.wav")), twice, 3500);  // what ffmpeg heard is a part of what was said
}

INSTANTIATE_TEST_SUITE_P(Ffmpeg, RtpPartner, testing::ValuesIn(partners),
                         [](auto const& suite) { return std::string(suite.param.name); });

}  // namespace
