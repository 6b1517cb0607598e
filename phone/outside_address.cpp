#include "phone/outside_address.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace fxsphone {

namespace {

// RFC 8489 section 6.2.1: after 500 ms, and twice as long each time; a caller does not wait for all seven.
constexpr int first_wait_ms = 500;
constexpr int most_tries = 3;
constexpr int last_wait_ms = 1000;
constexpr int keep_ms = 15'000;  // translators forget after 30 s at the earliest that is common (RFC 4787 section 4.3)

std::optional<fxsmedia::endpoint> endpoint_of(sa const& address) {
    char ip[64];
    if (!sa_isset(&address, SA_ALL) || sa_ntop(&address, ip, sizeof ip) != 0)
        return std::nullopt;
    return fxsmedia::endpoint::from_text(ip, sa_port(&address));
}

template <std::size_t size>
void draw(std::array<std::uint8_t, size>& transaction) {
    rand_bytes(transaction.data(), transaction.size());
}

}  // namespace

outside_address::~outside_address() {
    mem_deref(lookup);
}

std::string outside_address::begin(std::string const& where, dnsc* names) {
    if (where.empty())
        return "";
    pl const text = {where.data(), where.size()};
    pl host, port = {};
    if (uri_decode_hostport(&text, &host, &port) != 0)
        return "no STUN server: " + where;
    auto const found = [](int error, sa const* address, void* arg) {
        auto* const self = static_cast<outside_address*>(arg);
        if (error == 0)
            self->server = endpoint_of(*address);
        else
            std::fprintf(stderr, "the STUN server is not found: %s\n", std::strerror(error));
    };
    int const error =
        stun_server_discover(&lookup, names, stun_usage_binding, stun_proto_udp, AF_INET, text_of(host).c_str(),
                             static_cast<std::uint16_t>(pl_u32(&port)), found, this);
    return error == 0 ? "" : "no STUN server: " + std::string(std::strerror(error));
}

void outside_address::ask(leg& one, int rtp_port) {
    one.outside_rtp.reset();
    one.outside_rtcp.reset();
    one.asked_rtp_port = rtp_port;
    asked[one.channel] = {};
    if (server)
        send(one);
    else
        become_ready(one);
}

void outside_address::become_ready(leg& one) {
    question& here = asked[one.channel];
    one.rtp_port = std::exchange(one.asked_rtp_port, 0);
    here.tries = 0;
    here.due_ms = one.outside_rtp ? fxsmedia::monotonic_ms() + keep_ms : INT64_MAX;
    ready(one);
}

/// The same request from both ports, each with its own transaction.
void outside_address::send(leg const& one) {
    question& here = asked[one.channel];
    if (here.tries == 0 || one.asked_rtp_port == 0) {
        draw(here.rtp);
        draw(here.rtcp);
    }
    mbuf* const packet = mbuf_alloc(STUN_HEADER_SIZE);
    for (transaction const* const each : {&here.rtp, &here.rtcp}) {
        mbuf_rewind(packet);
        stun_msg_encode(packet, STUN_METHOD_BINDING, STUN_CLASS_REQUEST, each->data(), nullptr, nullptr, 0, false, 0,
                        0);
        fxsmedia::byte_view const bytes(packet->buf, packet->end);
        fxsmedia::tunnel_command command{.call = one.channel, .to = server};
        (each == &here.rtp ? command.rtp_data : command.rtcp_data) = bytes;
        process.send(command);
    }
    mem_deref(packet);
    here.tries++;
    here.due_ms = fxsmedia::monotonic_ms() + (one.asked_rtp_port == 0    ? keep_ms
                                              : here.tries == most_tries ? last_wait_ms
                                                                         : first_wait_ms << (here.tries - 1));
}

void outside_address::heard(fxsmedia::tunnel_report const& report) {
    leg* const one = telephones.of_channel(report.call);
    if (one == nullptr || !one->on_process || !server)
        return;
    question const& here = asked[one->channel];
    bool const taken = (report.rtp_data && answers(*report.rtp_data, here.rtp, one->outside_rtp)) ||
                       (report.rtcp_data && answers(*report.rtcp_data, here.rtcp, one->outside_rtcp));
    if (taken && one->asked_rtp_port != 0 && one->outside_rtp && one->outside_rtcp)
        become_ready(*one);
}

bool outside_address::answers(fxsmedia::byte_view packet, transaction const& expected,
                              std::optional<fxsmedia::endpoint>& mapped) {
    mbuf* const buffer = mbuf_alloc(packet.size());
    mbuf_write_mem(buffer, packet.data(), packet.size());
    mbuf_set_pos(buffer, 0);
    stun_msg* message = nullptr;
    stun_unknown_attr unknown;
    bool const ours = stun_msg_decode(&message, buffer, &unknown) == 0 &&
                      stun_msg_class(message) == STUN_CLASS_SUCCESS_RESP &&
                      std::memcmp(stun_msg_tid(message), expected.data(), expected.size()) == 0;
    stun_attr const* address = ours ? stun_msg_attr(message, STUN_ATTR_XOR_MAPPED_ADDR) : nullptr;
    if (ours && address == nullptr)
        address = stun_msg_attr(message, STUN_ATTR_MAPPED_ADDR);
    if (address != nullptr)
        mapped = endpoint_of(address->v.sa);
    mem_deref(message);
    mem_deref(buffer);
    return address != nullptr;
}

void outside_address::pass_time(std::int64_t now_ms) {
    for (int channel = 0; channel < static_cast<int>(asked.size()); channel++) {
        question& here = asked[channel];
        leg* const one = here.due_ms > now_ms ? nullptr : telephones.of_channel(channel);
        if (one == nullptr)
            continue;
        bool const waits = one->asked_rtp_port != 0;
        bool const speaks = one->record && one->record->answered_ms != 0;  // its media keep the mapping
        here.due_ms = INT64_MAX;
        if (waits && here.tries == most_tries) {
            if (!std::exchange(silent, true))
                std::fprintf(stderr, "the STUN server does not answer\n");
            become_ready(*one);
        } else if (waits || (one->on_process && !speaks)) {
            send(*one);
        }
    }
}

std::int64_t outside_address::due_ms() const {
    return std::ranges::min(asked, {}, &question::due_ms).due_ms;
}

}  // namespace fxsphone
