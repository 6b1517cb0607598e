#include <arpa/inet.h>
#include <sys/socket.h>

#include <functional>
#include <thread>

#include "tests/attack/attacker.h"

namespace {

class Flood : public testing::Test {
protected:
    Flood() : lines(speakers()), process({"--tdm", lines->tdm_path()}) {
        process.connect(0, 1, linear);
        process.put_on_line(0, 0);
        process.put_on_line(1, 1);
        EXPECT_TRUE(lines->wait_for_open(2));
    }
    std::uint64_t lost_blocks() {
        return lines->mount().locked([&] {
            return lines->bank().line(0).counters().overruns + lines->bank().line(1).counters().overruns;
        });
    }

    /// In real time, for more than a second: the lines keep 80 ms that the process has not read.
    void measure(char const* what, std::function<void()> const& attack, int most_ms = 1000) {
        std::uint64_t const lost_before = lost_blocks();
        std::atomic<bool> over = false;
        std::atomic<long> sends = 0;
        std::uint64_t ticks = 0;
        auto const repeat = [&over](auto const& act) {
            return std::thread([=, &over] {
                while (!over)
                    act();
            });
        };
        std::thread clock = repeat([&] {
            lines->mount().advance();
            ticks++;
            usleep(10000);
        });
        std::thread flood = repeat([&] {
            attack();
            sends++;
        });
        int worst_ms = 0, answers = 0;
        auto const begin = std::chrono::steady_clock::now();
        for (; ms_since(begin) < 1200 && worst_ms >= 0; answers++, usleep(2000)) {
            int const ms = answer_ms(process);
            worst_ms = ms < 0 ? ms : std::max(worst_ms, ms);
        }
        EXPECT_TRUE(process.client.wait_for<protocol::heartbeat>(patience)) << what;
        over = true;
        flood.join();
        clock.join();
        std::uint64_t const lost = lost_blocks() - lost_before;
        std::printf("%s: %ld sends in %d ms, %d commands answered within %d ms, %d of %d blocks lost\n", what,
                    sends.load(), ms_since(begin), answers, worst_ms, int(lost), int(2 * ticks));
        EXPECT_LE(lost, ticks) << what;
        EXPECT_TRUE(worst_ms >= 0 && worst_ms < most_ms) << what;
        EXPECT_TRUE(hears(*lines, 0) && hears(*lines, 1)) << what;
    }

    std::unique_ptr<telephones> lines;
    controlled_process process;
};

TEST_F(Flood, OfOneDoorDisturbsNoOtherCall) {
    protocol::open_reply const target = process.open(2);
    tell(process, protocol::media_command{.call = 2, .send = linear, .map = {linear}});
    stranger rtp(target.rtp_port), control(process.port), rtcp(target.rtcp_port),
        second_rtcp(target.rtcp_port);
    rtp_packet packet{.payload_type = 100, .payload = std::string(320, 'a')};
    measure("nothing", [] { usleep(1000); });
    measure("RTP port", [&] { rtp.send((packet.sequence++, packet.build())); });
    std::string const report = from_hex("80C80006 00000007 E0000000 00000000 00000000 00000001 00000001");
    rtcp.send(report);
    measure("RTCP port, a second sender", [&] { second_rtcp.send(report); });
    // Here one socket, the process's or ours, is full most of the time: what it loses is said again.
    measure(
        "RTCP port, the first sender, copied to us", [&] { rtcp.send(report); }, 20000);
    std::string const ends = from_hex("00040006000400020000 00040006000400020001");
    measure(
        "control port, a stranger", [&] { control.send(ends); }, 20000);

    int const listener = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(listen(listener, 1), 0);  // binds to a free port
    sockaddr_in own{};
    socklen_t length = sizeof own;
    getsockname(listener, reinterpret_cast<sockaddr*>(&own), &length);
    protocol::address const far{{127, 0, 0, 1}, ntohs(own.sin_port)};
    tell(process, protocol::media_command{.call = 2, .rtp_dest = far, .tcp = true});
    int const connection = accept(listener, nullptr, nullptr);
    std::string const frame = from_hex("0300") + be16(334) + be16(332) + packet.build();
    measure("TCP connection", [&] { (void)!send(connection, frame.data(), frame.size(), MSG_NOSIGNAL); });
    close(connection);
    close(listener);
}

}  // namespace
