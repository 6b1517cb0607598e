// The whole process: the input decides on commands, media, devices, faults and time.
//
// First 2 bytes: the clock's start, and settings. Each step: 1 byte, the low half what to do, the high half how many
// 10 ms blocks pass behind it; then what it needs.

#include <cerrno>

#include "fuzz/fuzz_world.h"
#include "lib/tlv.h"
#include "media/tcp_framing.h"

namespace {

constexpr int calls = 8;
constexpr char const* xr_modes[] = {
    "", "voip-metrics", "pkt-loss-rle pkt-dup-rle=40 stat-summary",
    "pkt-loss-rle pkt-dup-rle pkt-rcpt-times=200 rcvr-rtt stat-summary voip-metrics"};

/// A telephone exchange gone mad.
class mad_world : public fuzz_world {
public:
    mad_world(fuzz_input& source, sim::settings const& chosen) : fuzz_world(chosen), input(source) {}
    void step();

private:
    using action = void (mad_world::*)();
    static action const actions[16];

    int port_of(int call, bool rtcp) const { return rtcp ? rtcp_ports[call] : rtp_ports[call]; }
    sim::endpoint far(unsigned shape) const;
    void command(int tag, str const& fields) { world->command(cmd_get_tlv_str(tag, fields)); }
    str for_call() { return cmd_get_tlv_short(4, input.below(calls)); }
    str key() { return str(static_cast<unsigned char>(input.byte()), 30); }
    void deliver(int call, bool rtcp, unsigned shape, str const& data);

    void open();
    void media();
    void bind();
    void end();
    void order();
    void raw_command();
    void tunnel();
    void rtp();
    void rtcp();
    void raw_packet();
    void stream_bytes();
    void stream_state();
    void device();
    void fault();
    void texts();

    void reported(int tag, str const& value) override;
    bool connecting(int stream, sim::endpoint const&) override {
        streams = stream;
        return stream % 4 != 0;
    }
    int request(int, unsigned number) override { return number % 2 ? 0 : -EINVAL; }
    void line(int, std::int16_t const*, std::int16_t* said) override { said[0] = said[40] = 8000; }
    sim::path route(sim::endpoint const&, sim::endpoint const&) override { return {.jitter_us = jitter_us}; }

    fuzz_input& input;
    int rtp_ports[calls] = {}, rtcp_ports[calls] = {};
    std::uint16_t sequences[calls] = {};
    int streams = 0, jitter_us = 0;
};

mad_world::action const mad_world::actions[16] = {
    &mad_world::open,         &mad_world::media,       &mad_world::bind,       &mad_world::end,
    &mad_world::order,        &mad_world::raw_command, &mad_world::tunnel,     &mad_world::rtp,
    &mad_world::rtp,          &mad_world::rtcp,        &mad_world::raw_packet, &mad_world::stream_bytes,
    &mad_world::stream_state, &mad_world::device,      &mad_world::fault,      &mad_world::texts,
};

/// Some far ends of either family; one is the device itself.
sim::endpoint mad_world::far(unsigned shape) const {
    int const port = 5000 + 2 * static_cast<int>(shape >> 4);
    if ((shape & 7) == 7)
        return sim::device_v4.with_port(port_of(static_cast<int>(shape >> 4 & 7), shape >> 7 & 1));
    return shape & 8 ? sim::v6(9, port) : sim::v4(203, 0, 113, 9, port);
}

void mad_world::step() {
    unsigned const what = input.byte();
    (this->*actions[what & 15])();
    run_ms(static_cast<int>(what >> 4) * 10);
}

void mad_world::reported(int tag, str const& value) {
    constexpr int open_reply = 6;
    if (tag != open_reply)
        return;
    FUZZ_CHECK(value.length() == 18 && value[5] < calls);
    int const rtp = str2int16(value.substr(10, 2)), rtcp = str2int16(value.substr(16, 2));
    FUZZ_CHECK(rtp % 2 == 0 && (rtcp == rtp + 1 || (rtp == 0 && rtcp == 0)));
    rtp_ports[value[5]] = rtp;
    rtcp_ports[value[5]] = rtcp;
}

void mad_world::open() {
    unsigned const shape = input.byte();
    str fields = for_call();
    if (shape & 1)
        fields += cmd_get_tlv_str(22, str("id"));
    if (shape & 2)
        fields += cmd_get_tlv_short(11, static_cast<int>(input.word())) +
                  cmd_get_tlv_short(12, static_cast<int>(input.word()));
    if (shape & 4)
        fields += cmd_get_tlv_short(31, static_cast<int>(shape >> 3));
    command(16, fields);
}

/// Any of the groups of fields; payload types 0..7 are mapped to their codecs.
void mad_world::media() {
    unsigned const shape = input.byte();
    str fields = for_call();
    if (shape & 1) {
        unsigned char const type = static_cast<unsigned char>(input.byte() % 10);
        fields += cmd_get_tlv_str(6, str(type, type)) + cmd_get_tlv_short(17, input.below(70) * 10);
        for (unsigned char i = 0; i < 8; i++)
            fields += cmd_get_tlv_str(16, str(i, i));
    }
    if (shape & 2)
        fields += cmd_get_tlv_str(19, str(static_cast<unsigned char>(input.byte()), 1));
    if (shape & 4)
        fields += cmd_get_tlv_str(33, str("SSRC"));
    for (int const tag : {5, 26})
        if (shape & 8) {
            sim::endpoint const to = far(input.byte());
            str const address(to.address.data(), to.size);
            fields += cmd_get_tlv_address(tag, ip_port(address, to.port));
        }
    if (shape & 16)
        fields += cmd_get_tlv_short(34, 1);
    if (shape & 32)
        fields += cmd_get_tlv_str(21, str(xr_modes[input.below(4)]));
    if (shape & 64)
        fields += cmd_get_tlv_str(23, key()) + cmd_get_tlv_str(24, key());
    if (shape & 128)
        fields += cmd_get_tlv_str(25, str(static_cast<unsigned char>(input.byte() % 24), 1)) +
                  cmd_get_tlv_str(30, input.bytes(input.byte() % 8));
    command(17, fields);
}

void mad_world::bind() {
    command(18, for_call() + cmd_get_tlv_short(18, input.below(6)));
}

void mad_world::end() {
    command(4, for_call());
}

/// A command that is one number: log level, digit, driver command, tone, NTP offset, session, dump, loopback, LED.
void mad_world::order() {
    struct {
        int tag, field;
    } const table[] = {{7, 1},   {10, 19}, {11, 27}, {12, 28}, {12, 28},
                       {13, 20}, {19, 1},  {20, 1},  {21, 1},  {22, 27}};
    auto const& chosen = table[input.below(std::size(table))];
    blinking = blinking || chosen.tag == 22;
    int const number = input.below(32);
    str const fields = for_call() + cmd_get_tlv_short(29, number % 4);
    command(chosen.tag, fields + (chosen.tag == 13 ? cmd_get_tlv_long(20, number << 26)
                                                   : cmd_get_tlv_short(chosen.field, number)));
}

void mad_world::raw_command() {
    tunnelling = blinking = true;  // perhaps
    world->command(input.bytes(input.byte()));
}

void mad_world::tunnel() {
    unsigned const shape = input.byte();
    tunnelling = true;
    sim::endpoint const to = far(shape);
    str fields = for_call() + cmd_get_tlv_short(34, shape >> 5 & 1);
    if (shape & 16)
        fields += cmd_get_tlv_address(5, ip_port(str(to.address.data(), to.size), to.port));
    command(15, fields + cmd_get_tlv_str(shape & 64 ? 13 : 14, input.bytes(input.byte())));
}

void mad_world::deliver(int call, bool rtcp, unsigned shape, str const& data) {
    sim::endpoint const from = far(shape);
    sim::endpoint const& device = from.size == 16 ? sim::device_v6 : sim::device_v4;
    world->send(from, device.with_port(port_of(call, rtcp)), fuzz_view(data));
}

/// Some packets in a row, sequence numbers going on or jumping.
void mad_world::rtp() {
    int const call = input.below(calls);
    unsigned const shape = input.byte(), type = input.byte(), length = input.byte();
    if (shape & 64)
        sequences[call] = static_cast<std::uint16_t>(input.word());
    for (unsigned i = 0; i <= (shape & 7); i++) {
        unsigned const sequence = sequences[call]++;
        str const header =
            str(0x80, static_cast<unsigned char>(type), static_cast<unsigned char>(sequence >> 8),
                static_cast<unsigned char>(sequence));
        str const packet = header + str(static_cast<unsigned char>(sequence), 4) +
                           str(static_cast<unsigned char>(shape >> 7), 4) +
                           str('\x55', static_cast<int>(length));
        deliver(call, false, shape >> 3 & 7, packet);
    }
}

/// A compound of a report and an extended report whose bodies the input gives.
void mad_world::rtcp() {
    int const call = input.below(calls);
    unsigned const shape = input.byte();
    str const body = input.bytes(input.byte() % 64 * 4);
    unsigned char const type = static_cast<unsigned char>(200 + (shape >> 4 & 7));
    deliver(call, true, shape, str(0x81, type, 0, static_cast<unsigned char>(body.length() / 4)) + body);
}

void mad_world::raw_packet() {
    int const call = input.below(calls);
    unsigned const shape = input.byte();
    deliver(call, shape & 1, shape >> 1, input.bytes(input.byte()));
}

void mad_world::stream_bytes() {
    unsigned const shape = input.byte();
    str const data = input.bytes(input.byte());
    if (streams > 0)
        world->stream_send(1 + static_cast<int>(shape >> 1) % streams,
                           fuzz_view(shape & 1 ? frame_for_tcp(data) : data));
}

void mad_world::stream_state() {
    unsigned const shape = input.byte();
    if (streams == 0)
        return;
    int const stream = 1 + static_cast<int>(shape >> 2) % streams;
    if (shape & 2)
        world->stream_close(stream);
    else
        world->stream_stall(stream, shape & 1);
}

void mad_world::device() {
    unsigned const shape = input.byte();
    int const line = static_cast<int>(shape & 3);
    std::int16_t samples[300];
    for (std::int16_t& sample : samples)
        sample = static_cast<std::int16_t>(shape << 7);
    if (shape & 4)
        world->hang_up(line, shape & 8);
    else
        world->say(line, samples, static_cast<int>(shape));
}

void mad_world::fault() {
    constexpr int errors[] = {EAGAIN, EINTR, ENOMEM, ECONNREFUSED, EBADF, EIO, EADDRINUSE, EMFILE};
    unsigned const shape = input.byte();
    auto const which = static_cast<sim::call>(shape % static_cast<unsigned>(sim::call::count));
    world->fail(which, errors[shape >> 5], 1 + input.below(40));
}

void mad_world::texts() {
    unsigned const shape = input.byte();
    str const data = input.bytes(input.byte());
    if (shape & 1)
        world->driver_text(fuzz_view(data));
    else if (shape & 2)
        world->signal_bytes(fuzz_view(data));
    else if (shape & 4)
        world->set_time_of_day(static_cast<std::int64_t>(shape) << 55);
    else if (shape & 8)
        jitter_us = static_cast<int>(shape) * 500;
    else
        run_ms(static_cast<int>(shape) * 10);
}

}  // namespace

FUZZ_TARGET(core) {
    unsigned const start = input.byte(), shape = input.byte();
    mad_world process(input, {.seed = shape,
                              .clock_start = start < 128 ? start : 0u - (start << 2),
                              .line_ppm = static_cast<int>(shape & 63) * 10 - 320,
                              .use_ipv4 = (shape & 128) == 0,
                              .use_ipv6 = (shape & 64) == 0});
    process.run_ms(1);
    while (input.more(60))
        process.step();
}
