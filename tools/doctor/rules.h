#pragma once

#include <string>
#include <vector>

#include "tools/doctor/observation.h"

/// From what was seen to what is wrong. Pure: no socket, no clock, no output.
namespace doctor {

enum class certainty {
    certain,   ///< the evidence leaves no other cause
    likely,    ///< the usual cause of what is seen
    possible,  ///< one of several that fit
};

struct cause {
    std::string id;  ///< stable, for programs: "payload-type-not-mapped"
    certainty sure = certainty::certain;
    std::string evidence;
    std::string cure;  ///< a command, or what to do
};

enum class condition {
    ok,
    no_audio,   ///< nothing is heard
    bad_audio,  ///< something is, but wrong
    unseen,     ///< what there is to see does not tell
};

/// Of one direction of a call, or of the process as a whole.
struct verdict {
    int call = -1;          ///< -1: the process
    int line = -1;          ///< -1: none, or not known
    std::string direction;  ///< "network->phone", "phone->network", "control"
    condition state = condition::ok;
    std::vector<cause> causes;  ///< most certain first
    std::string remark;         ///< of unseen: what is missing to tell
};

/// Two for each call, and one of the process where something is wrong with it.
std::vector<verdict> examine(observation const& seen);

bool is_healthy(std::vector<verdict> const& verdicts);

}  // namespace doctor
