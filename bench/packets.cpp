// What a packet costs inside the process: ns of CPU time and blocks asked of the pool. A channel without a line, G.711
// mu-law, 20 ms a packet, no system calls but where said. Time is taken over whole batches; the figure is that of one
// packet (or block). Peers in the same run: the bare system call for sending, std::map with std::string for the jitter
// buffer.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/pool_calls.h"
#include "bench/stopwatch.h"
#include "codecs/codec.h"
#include "lib/log.h"
#include "media/channel.h"

namespace {

constexpr int payload_bytes = 160;  // 20 ms of G.711
constexpr int block_bytes = 160;    // 10 ms of PCM
constexpr int header_bytes = 12;
constexpr int blocks_per_packet = 2;
constexpr int batch = 200;     // packets; below the 400 at which the jitter buffer is thrown away
constexpr int arrival_ms = 5;  // between packets: 400 of them stay below its limit of 3 s
str const loopback(127, 0, 0, 1);

str packet(int sequence) {
    auto const timestamp = static_cast<unsigned>(sequence) * payload_bytes;
    unsigned char bytes[header_bytes + payload_bytes] = {0x80,
                                                         0,
                                                         static_cast<unsigned char>(sequence >> 8),
                                                         static_cast<unsigned char>(sequence),
                                                         static_cast<unsigned char>(timestamp >> 24),
                                                         static_cast<unsigned char>(timestamp >> 16),
                                                         static_cast<unsigned char>(timestamp >> 8),
                                                         static_cast<unsigned char>(timestamp),
                                                         1,
                                                         2,
                                                         3,
                                                         4};
    for (int i = 0; i < payload_bytes; i++)
        bytes[header_bytes + i] = static_cast<unsigned char>(i * 7);
    return str(bytes, sizeof bytes);
}

/// The order in which packets arrive: each may be overtaken by up to `reach` of those behind it. Numbers are extended
/// sequence numbers from 0 on.
class arrivals {
public:
    explicit arrivals(int reach) {
        std::mt19937 random(1);
        std::vector<std::pair<double, int>> lateness;
        for (int n = 0; n < cycle; n++)
            lateness.emplace_back(n + (n > 0 ? static_cast<double>(random()) / 4294967296.0 * reach : 0), n);
        std::sort(lateness.begin(), lateness.end());
        for (auto const& [when, n] : lateness)
            order.push_back(n);
    }
    int next() {
        int const number = count / cycle * cycle + order[static_cast<std::size_t>(count % cycle)];
        count++;
        return number;
    }

private:
    static constexpr int cycle = 4096;
    std::vector<int> order;
    int count = 0;
};

/// A channel in the middle of a call.
class call {
public:
    channel& own;

    explicit call(int reach = 0, int index = 0) : own(channels[index]), order(reach) {
        str map(static_cast<unsigned char>(0xFF), 128);
        map.set_character(0, codec::mu_law);
        own.init();
        own.set_codec(codec::mu_law, 0, 0, map, 20);
        own.set_ssrc(str(5, 6, 7, 8));
    }
    ~call() { own.init(); }

    /// Makes the next n packets.
    void prepare(int n) {
        waiting.clear();
        for (int i = 0; i < n; i++)
            waiting.push_back(packet(order.next()));
        received = 0;
    }
    /// Gives the channel the next of them.
    void receive() {
        own.process_rtp_data(waiting[received++], from, false, now);
        now += rtimestamp::ms2ticks(arrival_ms);
    }
    void receive_all() {
        while (received < waiting.size())
            receive();
    }
    void play(int blocks) {
        bool talk_spurt = false;
        for (int i = 0; i < blocks; i++)
            benchmark::DoNotOptimize(own.get_samples(talk_spurt).cbuffer());
    }

private:
    ip_port const from{loopback, 40000};
    arrivals order;
    std::vector<str> waiting;
    std::size_t received = 0;
    rtimestamp now = rtimestamp::s2ticks(100);
};

/// Times batches of operations. The benchmark's time is their mean, least_ns that of the fastest batch, each of one
/// operation.
class meter {
public:
    explicit meter(benchmark::State& reported) : state(reported) {}

    template <typename action>
    void measure(int operations, action const& work) {
        long const calls_before = pool_calls();
        double const start = stopwatch::cpu_ns();
        work();
        double const took = (stopwatch::cpu_ns() - start) / operations;
        state.SetIterationTime(took * 1e-9);
        least_ns = std::min(least_ns, took);
        calls += pool_calls() - calls_before;
        done += operations;
    }
    ~meter() {
        state.counters["least_ns"] = least_ns;
        state.counters["pool_calls"] = static_cast<double>(calls) / static_cast<double>(done);
    }

private:
    benchmark::State& state;
    double least_ns = std::numeric_limits<double>::infinity();
    long calls = 0;
    long done = 0;
};

/// process_rtp_data() alone. All channels take a few packets each before any is played, so that a batch is long enough
/// to be timed and no buffer gets deeper than in a call.
void receive_packet(benchmark::State& state) {
    constexpr int each_channel = 6;
    std::deque<call> calls;
    for (int i = 0; i < channel_count; i++)
        calls.emplace_back(0, i);
    meter each(state);
    for (auto _ : state) {
        for (call& one : calls)
            one.prepare(each_channel);
        each.measure(each_channel * channel_count, [&] {
            for (call& one : calls)
                one.receive_all();
        });
        for (call& one : calls)
            one.play(each_channel * blocks_per_packet);
    }
}

/// get_samples(): every second call decodes a packet.
void play_block(benchmark::State& state) {
    call one;
    meter each(state);
    for (auto _ : state) {
        one.prepare(batch);
        one.receive_all();
        each.measure(batch * blocks_per_packet, [&] { one.play(batch * blocks_per_packet); });
    }
}

/// A packet into the jitter buffer and one out of it, as two blocks; the buffer always holds `depth`.
void jitter_buffer(benchmark::State& state, int reach) {
    int const depth = static_cast<int>(state.range(0));
    call one(reach);
    meter each(state);
    one.prepare(depth);
    one.receive_all();
    for (auto _ : state) {
        one.prepare(batch);
        each.measure(batch, [&] {
            for (int i = 0; i < batch; i++) {
                one.receive();
                one.play(blocks_per_packet);
            }
        });
    }
}

void jitter_buffer_in_order(benchmark::State& state) {
    jitter_buffer(state, 0);
}
void jitter_buffer_out_of_order(benchmark::State& state) {
    jitter_buffer(state, static_cast<int>(state.range(0)) / 2);
}

/// The peer of both: the same payloads through a std::map of std::string, and nothing else: no header is read, nothing
/// is decoded.
void std_map_out_of_order(benchmark::State& state) {
    int const depth = static_cast<int>(state.range(0));
    arrivals order(depth / 2);
    std::string const payload(payload_bytes, 'p');
    std::map<int, std::string> buffer;
    meter each(state);
    for (int i = 0; i < depth; i++)
        buffer.emplace(order.next(), payload);
    for (auto _ : state) {
        each.measure(batch, [&] {
            for (int i = 0; i < batch; i++) {
                buffer.emplace(order.next(), payload);
                benchmark::DoNotOptimize(buffer.begin()->second.data());
                buffer.erase(buffer.begin());
            }
        });
    }
}

/// A socket on the loopback that takes what is sent.
class drain {
public:
    drain() : fd(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0)
            std::abort();
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
    }
    ~drain() { close(fd); }
    int empty() const {
        unsigned char data[2048];
        int n = 0;
        while (recv(fd, data, sizeof data, MSG_DONTWAIT) > 0)
            n++;
        return n;
    }

    int const fd;
    int port = 0;
};

constexpr int sent_batch = 50;  // packets; what a socket's buffer surely holds

/// Two blocks through process_audio(): encoding, header, sendto().
void send_packet(benchmark::State& state) {
    drain receiver;
    call one;
    one.own.open(20000, 60000, 0);
    one.own.set_destination(ip_port(loopback, receiver.port), ip_port(), false);
    str const block('\x11', block_bytes);
    meter each(state);
    for (auto _ : state) {
        each.measure(sent_batch, [&] {
            for (int i = 0; i < sent_batch * blocks_per_packet; i++)
                one.own.process_audio(block);
        });
        if (receiver.empty() != sent_batch)
            state.SkipWithError("packets got lost");
    }
}

/// The peer: the system call alone.
void bare_sendto(benchmark::State& state) {
    drain receiver;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<std::uint16_t>(receiver.port));
    int const fd = socket(AF_INET, SOCK_DGRAM, 0);
    unsigned char const data[header_bytes + payload_bytes] = {};
    meter each(state);
    for (auto _ : state) {
        each.measure(sent_batch, [&] {
            for (int i = 0; i < sent_batch; i++)
                sendto(fd, data, sizeof data, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        });
        receiver.empty();
    }
    close(fd);
}

constexpr int batches = 2000;
void depths(benchmark::internal::Benchmark* set_up) {
    set_up->Arg(1)->Arg(16)->Arg(100)->Arg(400)->UseManualTime()->Iterations(batches);
}

BENCHMARK(receive_packet)->UseManualTime()->Iterations(batches);
BENCHMARK(play_block)->UseManualTime()->Iterations(batches);
BENCHMARK(jitter_buffer_in_order)->Apply(depths);
BENCHMARK(jitter_buffer_out_of_order)->Apply(depths);
BENCHMARK(std_map_out_of_order)->Apply(depths);
BENCHMARK(send_packet)->UseManualTime()->Iterations(batches);
BENCHMARK(bare_sendto)->UseManualTime()->Iterations(batches);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    init_timestamps();
    channels.resize(channel_count);
    for (int i = 0; i < channel_count; i++) {
        channels[i].set_id(i);
        channels[i].init();
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
