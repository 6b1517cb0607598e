#pragma once

#include <cstdint>

#include "lib/rtcp_numbers.h"

/// Losses in bursts and gaps as RFC 3611 section 4.7.2 defines them: a burst begins and ends with a loss, and fewer
/// than Gmin packets in a row came within it; a loss alone belongs to the gap around it. Fed in the order of sequence
/// numbers with what came and what did not. Lives as long as the call.
class loss_bursts {
public:
    struct part {
        long long packets = 0;
        long long lost = 0;
    };
    struct totals {
        part burst;
        part gap;
        int bursts = 0;
    };

    void add_received() { run++; }
    void add_lost(std::uint32_t n) {
        if (run >= rtcp::gmin || group.lost == 0) {
            closed = get();
            group = part();
            run = 0;
        }
        group.packets += run + n;
        group.lost += n;
        run = 0;
    }
    /// With the losses of the latest burst as they stand.
    totals get() const {
        totals all = closed;
        bool const is_burst = group.lost > 1;
        part& belongs_to = is_burst ? all.burst : all.gap;
        belongs_to.packets += group.packets;
        belongs_to.lost += group.lost;
        all.bursts += is_burst;
        all.gap.packets += run;
        return all;
    }

private:
    totals closed;      ///< all before the group
    part group;         ///< from the first to the last of losses that are close to each other
    long long run = 0;  ///< packets that came since
};
