#include "tests/tools/fxsctl/fake_process.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "tools/protocol/tags.h"
#include "tools/protocol/tlv.h"

using namespace protocol;

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bytes open_answer(const bytes& command) {  // fxsctl writes the call index first
    const std::uint8_t call = command.at(5);
    const auto rtp_port = static_cast<std::uint16_t>(40000 + 2 * call);
    bytes fields;
    append_short(fields, field::call, call);
    append_short(fields, field::rtp_port, rtp_port);
    append_short(fields, field::rtcp_port, static_cast<std::uint16_t>(rtp_port + 1));
    bytes reply;
    append_tlv(reply, report_tag::open_reply, fields);
    return reply;
}

}  // namespace

fake_process::fake_process(manners how, std::uint16_t port) : how_(how) {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local = loopback(port);
    socklen_t size = sizeof local;
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&local), size) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
        throw std::runtime_error("the stand-in cannot bind its port");
    }
    port_ = ntohs(local.sin_port);
    thread_ = std::thread([this] { serve(); });
}

fake_process::~fake_process() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    thread_.join();
    close(fd_);
}

void fake_process::answer(std::uint16_t tag, const bytes& reply) {
    const std::lock_guard lock(mutex_);
    answers_[tag] = reply;
}

void fake_process::report(const bytes& datagram) {
    const std::lock_guard lock(mutex_);
    send_to_peer(datagram);
}

std::vector<std::string> fake_process::commands() {
    const std::lock_guard lock(mutex_);
    return commands_;
}

bool fake_process::wait_for_commands(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return commands_.size() >= count; });
}

std::set<std::uint16_t> fake_process::peers() {
    const std::lock_guard lock(mutex_);
    return peers_;
}

void fake_process::serve() {
    constexpr int look_around_ms = 20;
    for (;;) {
        pollfd ready{fd_, POLLIN, 0};
        const int count = poll(&ready, 1, look_around_ms);
        if (count > 0) {
            take_your_time();
        }
        const std::lock_guard lock(mutex_);
        if (ending_) {
            return;
        }
        bytes datagram(65536);
        sockaddr_in from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = count <= 0 ? -1
                                        : recvfrom(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT,
                                                   reinterpret_cast<sockaddr*>(&from), &from_size);
        if (size >= 0) {
            datagram.resize(static_cast<std::size_t>(size));
            take(datagram, ntohs(from.sin_port));
            changed_.notify_all();
        }
    }
}

void fake_process::take_your_time() const {
    if (how_ == manners::slow) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
}

void fake_process::take(const bytes& datagram, std::uint16_t from) {
    for (const tlv& element : split_tlvs(datagram).elements) {
        const bool is_session = element.tag == command_tag::session;
        if (is_session) {
            take_your_time();
            peer_ = from;
            peers_.insert(from);
        } else if (from != peer_) {
            continue;
        } else {
            bytes whole;
            append_tlv(whole, element.tag, element.value);
            commands_.push_back(to_hex(whole));
        }
        if (const auto told = answers_.find(element.tag); told != answers_.end()) {
            send_to_peer(told->second);
        } else if (is_session) {
            send_to_peer({0, report_tag::heartbeat, 0, 0});
        } else if (element.tag == command_tag::open) {
            send_to_peer(open_answer(element.value));
        }
    }
}

void fake_process::send_to_peer(const bytes& datagram) {
    const sockaddr_in to = loopback(peer_);
    if (how_ != manners::silent && !datagram.empty()) {
        sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
}
