#pragma once

#include "tools/doctor/rules.h"

/// The two directions of one call; for examine().
namespace doctor {

/// Packets that are no accident.
constexpr unsigned a_few = 5;

verdict examine_received(observation const& seen, call_facts const& call);
verdict examine_sent(observation const& seen, call_facts const& call);

/// On one direction, with what keeps the call from its line as its only causes.
verdict begin_verdict(observation const& seen, call_facts const& call, char const* direction);

}  // namespace doctor
