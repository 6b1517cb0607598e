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

void write_wav(std::string const& path, signals::samples const& pcm) {
    std::string const raw = path + ".raw";
    FILE* const file = std::fopen(raw.c_str(), "wb");
    std::fwrite(pcm.data(), 2, pcm.size(), file);
    std::fclose(file);
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f s16le -ar 8000 -ac 1 -i " + raw + " " + path).c_str()), 0);
}

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

    /// Lets the telephones live in real time, which the partner does, until it has ended; its exit status. With a
    /// head start the partner's bursts and the machine's load can't leave the line without audio.
    static int run_with(telephones& lines, std::string const& command, std::chrono::milliseconds head_start) {
        std::future<int> partner_end = std::async(std::launch::async, [&] { return std::system(command.c_str()); });
        partner_end.wait_for(head_start);
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

TEST_P(rtp_partner, is_heard_on_the_line) {
    if (GetParam().encoder == nullptr)
        GTEST_SKIP() << "ffmpeg can't send it";
    signals::samples const said = signals::speech_like(12000, 12000, 11);
    write_wav(file("said.wav"), said);
    telephones lines({});
    controlled_process process(options(lines));
    protocol::open_reply const opened = process.open(0);
    call(process, lines, free_port());
    EXPECT_EQ(run_with(lines,
                       "ffmpeg -v error -re -i " + file("said.wav") + " " + GetParam().encoder + " -payload_type " +
                           payload_type() + " -f rtp rtp://127.0.0.1:" + std::to_string(opened.rtp_port) +
                           "?pkt_size=" + std::to_string(GetParam().packet_bytes) + " >/dev/null",
                       500ms),
              0);
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
    EXPECT_EQ(run_with(lines,
                       "ffmpeg -v error -y -analyzeduration 0 -protocol_whitelist file,udp,rtp -i " + file(".sdp") +
                           " -t 2 -ar 8000 -ac 1 " + file("heard.wav") + " </dev/null",
                       0ms),
              0);
    signals::samples twice = said;
    twice.insert(twice.end(), said.begin(), said.end());
    comparison const result = compare(read_wav(file("heard.wav")), twice, 3500);
    EXPECT_GE(result.similarity, GetParam().least_similarity);
    EXPECT_NEAR(result.level_db, GetParam().level_db,
                1);  // of the line's speech, relative to what ffmpeg heard
}

/// ffmpeg decodes G.729 but not out of RTP: the packets are collected here.
TEST(g729_partner, decodes_what_the_line_says) {
    if (!FXSMEDIA_G729)
        GTEST_SKIP() << "built without G.729";
    signals::samples const said = signals::speech_like(3 * 8000, 12000, 13);
    telephones lines({fxsline::speech::recording(said, false, "test")});
    controlled_process process({"--tdm", lines.tdm_path()});
    protocol::open_reply const opened = process.open(0);
    auto partner = protocol::control_client::connect_udp("127.0.0.1", opened.rtp_port);
    process.send(protocol::encode(protocol::media_command{
        .call = 0,
        .send = protocol::codec_choice{3, 18},
        .rtp_dest = protocol::address{{127, 0, 0, 1}, partner.local_port()},
    }));
    process.put_on_line(0, 0);
    ASSERT_TRUE(lines.wait_for_open(1));
    std::string const file = testing::TempDir() + "partner" + std::to_string(::getpid());
    {
        std::ofstream coded(file + ".g729", std::ios::binary);
        for (int packet = 0; packet < 100; packet++) {
            lines.run(2);
            auto const datagram = partner.receive_datagram(20s);
            ASSERT_TRUE(datagram && datagram->size() == 12 + 20);
            coded.write(reinterpret_cast<char const*>(datagram->data()) + 12, 20);
        }
    }
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f g729 -i " + file + ".g729 " + file + ".wav").c_str()), 0);
    comparison const result = compare({said.begin(), said.begin() + 12000}, read_wav(file + ".wav"), 100);
    EXPECT_GE(result.similarity, 0.6);
    EXPECT_NEAR(result.level_db, 0, 1.5);
    EXPECT_LE(result.delay_ms, 20);
}

/// What ffmpeg encodes but can't send in packets of whole blocks is sent from here, some packets before the clock
/// starts, so that the line never waits for one that is on its way.
TEST(file_partner, is_heard_on_the_line) {
    struct {
        protocol::codec_choice codec;
        char const* encoder;
        std::size_t bytes_of_20_ms;
        double least_similarity;
    } const table[] = {
        {{4, 3}, "-c:a libgsm -f gsm", 33, 0.8},
        {{6, 97}, "-c:a g726le -b:a 32k -f g726le", 80, 0.9},
    };
    for (auto const& row : table) {
        signals::samples const said = signals::speech_like(2 * 8000, 12000, 14);
        std::string const file = testing::TempDir() + "coded" + std::to_string(::getpid());
        write_wav(file + ".wav", said);
        ASSERT_EQ(std::system(("ffmpeg -v error -y -i " + file + ".wav " + row.encoder + " " + file).c_str()), 0);
        std::ifstream coded(file, std::ios::binary);
        telephones lines({});
        controlled_process process({"--tdm", lines.tdm_path()});
        protocol::open_reply const opened = process.open(0);
        process.send(protocol::encode(protocol::media_command{.call = 0, .send = row.codec, .map = {row.codec}}));
        process.put_on_line(0, 0);
        ASSERT_TRUE(lines.wait_for_open(1));
        auto partner = protocol::control_client::connect_udp("127.0.0.1", opened.rtp_port);
        protocol::bytes payload(row.bytes_of_20_ms);
        constexpr unsigned head_start = 4;
        for (unsigned packet = 0;
             coded.read(reinterpret_cast<char*>(payload.data()), static_cast<std::streamsize>(payload.size()));
             packet++) {
            protocol::bytes datagram{
                0x80, row.codec.payload_type, 1, static_cast<std::uint8_t>(packet), 0, 0, 0, 0, 1, 2, 3, 4};
            datagram.insert(datagram.end(), payload.begin(), payload.end());
            partner.send(datagram);
            if (packet >= head_start)
                lines.run(2);
        }
        comparison const result = compare({said.begin(), said.begin() + 12000}, lines.heard(0), 200);
        EXPECT_GE(result.similarity, row.least_similarity) << row.encoder;
        EXPECT_NEAR(result.level_db, 0, 1.5) << row.encoder;
    }
}

INSTANTIATE_TEST_SUITE_P(ffmpeg, rtp_partner, testing::ValuesIn(partners),
                         [](auto const& suite) { return std::string(suite.param.name); });

}  // namespace
