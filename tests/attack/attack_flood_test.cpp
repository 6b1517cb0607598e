#include "tests/attack/attacker.h"
#include "tests/support/rtp_builder.h"

namespace {

/// A far end that accepts one connection and throws away what comes.
class tcp_end {
public:
    tcp_end() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        EXPECT_EQ(listen(fd, 1), 0);  // binds to a free port
        sockaddr_in own{};
        socklen_t length = sizeof own;
        getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length);
        port = ntohs(own.sin_port);
    }
    ~tcp_end() { close(fd); }
    tcp_end(tcp_end const&) = delete;
    void accept() {
        pollfd waits{fd, POLLIN, 0};
        ASSERT_EQ(poll(&waits, 1, 20000), 1);
        int const connection = ::accept(fd, nullptr, nullptr);
        close(std::exchange(fd, connection));
        timeval const limit{0, 100000};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }
    void send(std::string const& bytes) const { (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    std::uint16_t port;

private:
    int fd;
};

class Flood : public testing::Test {
protected:
    Flood() : lines(speakers()), process({"--tdm", lines->tdm_path()}) {
        process.connect(0, 1, linear);
        process.put_on_line(0, 0);
        process.put_on_line(1, 1);
        EXPECT_TRUE(lines->wait_for_open(2));
        target = process.open(2);
        process.send(protocol::encode(protocol::media_command{.call = 2, .send = linear, .map = {linear}}));
    }

    static std::string packet(long number) {
        rtp_packet packet{.payload_type = 100, .sequence = static_cast<std::uint16_t>(number), .ssrc = 7};
        packet.payload.assign(320, 'a');
        return packet.build();
    }
    std::uint64_t lost_blocks() {
        return lines->mount().locked([&] {
            return lines->bank().line(0).counters().overruns + lines->bank().line(1).counters().overruns;
        });
    }

    /// In real time, for more than a second: the lines keep 80 ms that the process has not read.
    void measure(char const* what, std::function<void()> attack, int most_ms = 1000) {
        std::uint64_t const lost_before = lost_blocks();
        int worst_ms = 0, answers = 0;
        {
            tireless const clock([&] {
                usleep(10000);
                lines->mount().advance();
            });
            tireless const flood(std::move(attack));
            auto const begin = std::chrono::steady_clock::now();
            for (; ms_since(begin) < 1200; answers++) {
                int const ms = answer_ms(process);
                ASSERT_GE(ms, 0) << what;
                worst_ms = std::max(worst_ms, ms);
                usleep(2000);
            }
            EXPECT_TRUE(process.client.wait_for<protocol::heartbeat>(patience)) << what;
            lost = lost_blocks() - lost_before;
            std::printf(
                "%s: %ld sends and %ld ticks in %d ms, %d commands answered within %d ms, %d blocks lost\n",
                what, flood.times.load(), clock.times.load(), ms_since(begin), answers, worst_ms,
                static_cast<int>(lost));
            EXPECT_LE(lost, static_cast<std::uint64_t>(clock.times)) << "half of what two lines said";
        }
        EXPECT_LT(worst_ms, most_ms) << what;
        EXPECT_TRUE(hears(*lines, 0) && hears(*lines, 1)) << what;
    }

    std::unique_ptr<telephones> lines;
    controlled_process process;
    protocol::open_reply target;
    std::uint64_t lost = 0;
};

TEST_F(Flood, OfOneDoorDisturbsNoOtherCall) {
    long number = 0;
    stranger const rtp(target.rtp_port), control(process.port), rtcp(target.rtcp_port),
        second_rtcp(target.rtcp_port);
    measure("nothing", [] { usleep(1000); });
    measure("RTP port", [&] { rtp.send(packet(number++)); });
    std::string const report = from_hex("80C80006 00000007 E0000000 00000000 00000000 00000001 00000001");
    rtcp.send(report);
    measure("RTCP port, a second sender", [&] { second_rtcp.send(report); });
    std::string const end_of_all = from_hex("00040006000400020000 00040006000400020001");
    // Here one socket, the process's or ours, is full most of the time: what it loses is said again.
    measure(
        "RTCP port, the first sender, copied to us", [&] { rtcp.send(report); }, 10000);
    measure(
        "control port, a stranger", [&] { control.send(end_of_all); }, 10000);

    tcp_end far;
    process.send(protocol::encode(protocol::media_command{
        .call = 2, .rtp_dest = protocol::address{{127, 0, 0, 1}, far.port}, .tcp = true}));
    far.accept();
    measure("TCP connection", [&] {
        std::string const bare = packet(number++);
        unsigned const length = static_cast<unsigned>(bare.size());
        far.send(from_hex("0300") + be16(length + 2) + be16(length) + bare);
    });
}

}  // namespace
