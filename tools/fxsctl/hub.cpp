#include "tools/fxsctl/hub.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "lib/protocol.h"
#include "tools/fxsctl/call_ledger.h"
#include "tools/fxsctl/hub_endpoint.h"
#include "tools/protocol/tlv.h"

namespace fxsctl {
namespace {

constexpr std::size_t largest_datagram_bytes = 65536;
constexpr std::size_t most_remembered = 2000;  ///< messages; a call is set up with a handful

std::int64_t milliseconds_now() {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

hub::~hub() {
    for (int const fd : client_fds)
        close(fd);
    for (int const fd : {listening_fd, relay_fd})
        if (fd >= 0)
            close(fd);
}

bool hub::listen(settings const& global) {
    listening_fd = listen_as_hub(global);
    return listening_fd >= 0;
}

bool hub::relay(std::uint16_t port, std::uint16_t peer_port) {
    sockaddr_in const local = loopback(port);
    relay_peer = loopback(peer_port);
    relay_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return relay_fd >= 0 && bind(relay_fd, reinterpret_cast<sockaddr const*>(&local), sizeof local) == 0;
}

void hub::forward(protocol::byte_view data, std::vector<datagram>& passed) {
    process.send(data);
    remember(true, data);
    passed.push_back({true, {data.begin(), data.end()}});
}

void hub::remember(bool command, protocol::byte_view messages) {
    for (protocol::tlv const& one : protocol::split_tlvs(messages).elements) {
        auto const call = ledger_call(command, one.tag, one.value);
        if (!call)
            continue;
        if (command && one.tag == protocol::cmd_end::tag) {
            std::erase_if(history, [&](past_message const& past) { return past.call == *call; });
            continue;
        }
        protocol::bytes whole;
        protocol::append_tlv(whole, one.tag, one.value);
        history.push_back({*call, command, milliseconds_now(), std::move(whole)});
        if (history.size() > most_remembered)
            history.pop_front();
    }
}

void hub::tell_history(int fd) const {
    for (protocol::bytes const& part : history_answer(history, milliseconds_now()))
        send(fd, part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void hub::accept_clients() {
    int fd = -1;
    while (listening_fd >= 0 && (fd = accept4(listening_fd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0)
        if (trusted_peer(fd))
            client_fds.push_back(fd);
        else
            close(fd);
}

void hub::take_from_process(std::vector<datagram>& passed) {
    while (std::optional<protocol::bytes> data = process.receive_datagram(std::chrono::milliseconds(0))) {
        remember(false, *data);
        accept_clients();  // clients that connected before the report left get it, too
        for (int const fd : client_fds) {
            // A client that does not read loses reports; the others don't wait for it.
            send(fd, data->data(), data->size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        if (relay_fd >= 0) {
            sendto(relay_fd, data->data(), data->size(), MSG_DONTWAIT, reinterpret_cast<sockaddr const*>(&relay_peer),
                   sizeof relay_peer);
        }
        passed.push_back({false, std::move(*data)});
    }
}

bool hub::take_from_client(int fd, std::vector<datagram>& passed) {
    std::vector<std::uint8_t> buffer(largest_datagram_bytes);
    ssize_t const size = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size <= 0)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    protocol::byte_view const data = protocol::byte_view(buffer).first(static_cast<std::size_t>(size));
    if (is_history_request(data))
        tell_history(fd);
    else
        forward(data, passed);
    return true;
}

void hub::take_from_relay(std::vector<datagram>& passed) {
    std::vector<std::uint8_t> buffer(largest_datagram_bytes);
    sockaddr_in sender{};
    socklen_t sender_size = sizeof sender;
    ssize_t const size = recvfrom(relay_fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&sender), &sender_size);
    if (size > 0) {
        relay_peer = sender;
        forward(protocol::byte_view(buffer).first(static_cast<std::size_t>(size)), passed);
    }
}

std::vector<hub::datagram> hub::pass_on(std::chrono::milliseconds timeout) {
    std::vector<pollfd> ready{{process.fd(), POLLIN, 0}, {listening_fd, POLLIN, 0}, {relay_fd, POLLIN, 0}};
    constexpr std::size_t first_client = 3;
    for (int const fd : client_fds)
        ready.push_back({fd, POLLIN, 0});
    std::vector<datagram> passed;
    if (poll(ready.data(), ready.size(), static_cast<int>(timeout.count())) <= 0)
        return passed;
    for (std::size_t i = first_client; i < ready.size(); ++i) {
        if (ready[i].revents != 0 && !take_from_client(ready[i].fd, passed)) {
            std::erase(client_fds, ready[i].fd);
            close(ready[i].fd);
        }
    }
    if (ready[0].revents != 0)
        take_from_process(passed);
    if (ready[1].revents != 0)
        accept_clients();
    if (ready[2].revents != 0)
        take_from_relay(passed);
    return passed;
}

}  // namespace fxsctl
