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
    char const* encoder;   ///< ffmpeg's encoder with its options; null: it can't send this one
    int packet_bytes;      ///< of 20 ms, header included
    char const* rtp_name;  ///< as a=rtpmap names it
    double least_similarity;
    double level_db;  ///< what the line hears, relative to what ffmpeg was given
    char const* extensions = nullptr;
};

/// Our G.722 coder keeps to the 14 bits of the Recommendation's interface, ffmpeg's drives it one bit higher.
constexpr double g722_level_db = 6.02;

constexpr partner partners[] = {
    {"pcmu", {1, 0}, "-c:a pcm_mulaw -af asetnsamples=160", 172, "PCMU/8000", 0.98, 0},
    {"pcma", {2, 8}, "-c:a pcm_alaw -af asetnsamples=160", 172, "PCMA/8000", 0.98, 0},
    {"gsm", {4, 3}, nullptr, 45, "GSM/8000", 0.8, 0},
    {"g722", {5, 9}, "-c:a g722 -ar 16000", 172, "G722/8000", 0.85, g722_level_db},
    {"g722_extension", {5, 9}, "-c:a g722 -ar 16000", 172, "G722/8000", 0.85, 0, "g722"},
    {"g726", {6, 97}, nullptr, 92, "G726-32/8000", 0.9, 0},
};

class rtp_partner : public testing::TestWithParam<partner> {
protected:
    rtp_partner() : prefix(testing::TempDir() + GetParam().name + std::to_string(::getpid())) {}

    std::string file(std::string const& name) const { return prefix + name; }
    std::string payload_type() const { return std::to_string(GetParam().codec.payload_type); }

    static std::vector<std::string> options(telephones const& lines) {
        std::vector<std::string> all{"--tdm", lines.tdm_path()};
        if (GetParam().extensions != nullptr)
            all.insert(all.end(), {"--extensions", GetParam().extensions});
        return all;
    }

    /// Puts call 0, with the partner at remote_port, on line 0.
    void call(controlled_process& process, telephones& lines, std::uint16_t remote_port) const {
        process.send(protocol::encode(protocol::media_command{
            .call = 0,
            .send = GetParam().codec,
            .map = {GetParam().codec},
            .rtp_dest = protocol::address{{127, 0, 0, 1}, remote_port},
        }));
        process.put_on_line(0, 0);
        ASSERT_TRUE(lines.wait_for_open(1));
    }

    /// Lets the telephones live in real time, which the partner does, until it has ended; its exit status.
    static int run_with(telephones& lines, std::string const& command) {
        std::future<int> partner_end = std::async(std::launch::async, [&] { return std::system(command.c_str()); });
        fxsline::tick_clock clock;
        while (partner_end.wait_for(1ms) != std::future_status::ready)
            lines.run(static_cast<int>(clock.due()));
        return partner_end.get();
    }

    void write_session_description(std::uint16_t port) const {
        std::ofstream(file(".sdp")) << "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=call\nc=IN IP4 127.0.0.1\nt=0 0\n"
                                    << "m=audio " << port << " RTP/AVP " << payload_type() << "\n"
                                    << "a=rtpmap:" << payload_type() << " " << GetParam().rtp_name << "\n";
    }

private:
    std::string prefix;
};

/// What ffmpeg sends is collected first and passed on as the clock is stepped, some packets ahead of it, so that the
/// line never waits for one that is on its way.
TEST_P(rtp_partner, is_heard_on_the_line) {
    if (GetParam().encoder == nullptr)
        GTEST_SKIP() << "ffmpeg can't send it";
    signals::samples const said = signals::speech_like(12000, 12000, 11);
    std::ofstream(file("said.raw"), std::ios::binary)
        .write(reinterpret_cast<char const*>(said.data()), std::ssize(said) * 2);
    std::uint16_t const ffmpeg_port = free_port();
    auto ffmpeg = protocol::control_client::connect_udp("127.0.0.1", ffmpeg_port);
    std::string const url = "rtp://127.0.0.1:" + std::to_string(ffmpeg.local_port()) +
                            "?localrtpport=" + std::to_string(ffmpeg_port) +
                            "'&'pkt_size=" + std::to_string(GetParam().packet_bytes);
    std::string const sends = "ffmpeg -v error -f s16le -ar 8000 -ac 1 -i " + file("said.raw") + " " +
                              GetParam().encoder + " -payload_type " + payload_type() + " -f rtp " + url;
    ASSERT_EQ(std::system((sends + " >/dev/null </dev/null").c_str()), 0);
    telephones lines({});
    controlled_process process(options(lines));
    auto sender = protocol::control_client::connect_udp("127.0.0.1", process.open(0).rtp_port);
    call(process, lines, free_port());
    constexpr int ahead = 4;
    for (int packets = 0; auto const packet = ffmpeg.receive_datagram(0ms); packets++) {
        sender.send(*packet);
        if (packets >= ahead)
            lines.run(2);
    }
    lines.run(100);
    comparison const result = compare(said, lines.heard(0), 1500);
    EXPECT_GE(result.similarity, GetParam().least_similarity);
    EXPECT_NEAR(result.level_db, GetParam().level_db, 1);
}

TEST_P(rtp_partner, hears_the_line) {
    signals::samples const said = signals::speech_like(3 * 8000, 12000, 12);
    telephones lines({fxsline::speech::recording(said, true, "test")});
    controlled_process process(options(lines));
    process.open(0);
    std::uint16_t const partner_port = free_port();
    write_session_description(partner_port);
    call(process, lines, partner_port);
    EXPECT_EQ(run_with(lines, "ffmpeg -v error -y -analyzeduration 0 -protocol_whitelist file,udp,rtp -i " +
                                  file(".sdp") + " -t 2 -ar 8000 -ac 1 " + file("heard.wav") + " </dev/null"),
              0);
    signals::samples twice = said;
    twice.insert(twice.end(), said.begin(), said.end());
    comparison const result = compare(read_wav(file("heard.wav")), twice, 3500);
    EXPECT_GE(result.similarity, GetParam().least_similarity);
    EXPECT_NEAR(result.level_db, GetParam().level_db, 1) << "of the line's speech, relative to what ffmpeg heard";
}

INSTANTIATE_TEST_SUITE_P(ffmpeg, rtp_partner, testing::ValuesIn(partners),
                         [](auto const& suite) { return std::string(suite.param.name); });

}  // namespace
