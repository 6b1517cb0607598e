#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "tools/fxsctl/call_ledger.h"
#include "tools/protocol/bytes.h"

/// How a run of fxsctl asks the monitor what it remembers of the calls: an element of a tag that no command has, which
/// the process would ignore, and answers of such tags.
namespace fxsctl {

struct past_message {
    std::uint16_t call = 0;
    bool command = false;
    std::int64_t time_ms = 0;
    protocol::bytes message;  ///< with its header
};

protocol::bytes history_request();
bool is_history_request(protocol::byte_view datagram);

/// Datagrams to send, one after the other; the last one says that it is the last.
std::vector<protocol::bytes> history_answer(std::deque<past_message> const& history, std::int64_t now_ms);

/// Puts the answer together again.
class history_reader {
public:
    /// false: the datagram is no part of an answer.
    bool take(protocol::byte_view datagram);
    bool complete() const { return ended; }
    /// Times in it are milliseconds ago, negated.
    call_ledger const& ledger() const { return told; }

private:
    call_ledger told;
    bool ended = false;
};

}  // namespace fxsctl
