#pragma once

#include "tools/doctor/rules.h"

/// The two directions of one call; for examine().
namespace doctor {

verdict examine_received(observation const& seen, call_facts const& call);
verdict examine_sent(observation const& seen, call_facts const& call);

/// What keeps a call from its line, in both directions; none when nothing is known to.
std::vector<cause> line_causes(observation const& seen, call_facts const& call);

/// "fxsctl media --call 0 --codec pcma --map 8=pcma" and the like: what a call must be given to accept this payload
/// type as well.
std::string map_cure(call_facts const& call, int payload_type);

}  // namespace doctor
