#include "media/xr_mode.h"

namespace {

constexpr int default_largest_bytes = 65536;

constexpr struct {
    char const* word;
    int xr_mode::*largest;
} sized_blocks[] = {
    {"pkt-loss-rle", &xr_mode::loss_rle_max},
    {"pkt-dup-rle", &xr_mode::dup_rle_max},
    {"pkt-rcpt-times", &xr_mode::rcpt_times_max},
};

constexpr struct {
    char const* word;
    bool xr_mode::*on;
} other_blocks[] = {
    {"rcvr-rtt", &xr_mode::rcvr_rtt},
    {"stat-summary", &xr_mode::stat_summary},
    {"voip-metrics", &xr_mode::voip_metrics},
};

}  // namespace

xr_mode xr_mode::parse(str const& text) {
    xr_mode mode;
    for (str rest = text.get_rest(0, ' '); !rest.empty(); rest = rest.get_rest(1, ' ')) {
        str const word = rest.get_field(0, str::space);
        int const equals = word.find(str("="));
        str const name = equals < 0 ? word : word.leftstr(equals);
        str const value = equals < 0 ? str::null : word.substr(equals + 1);
        for (auto const& known : sized_blocks)
            if (name.icmp(known.word))
                mode.*known.largest = value.empty() ? default_largest_bytes : value.value();
        for (auto const& known : other_blocks)
            if (name.icmp(known.word))
                mode.*known.on = true;
    }
    return mode;
}

bool xr_mode::any() const {
    return stat_summary || voip_metrics || rcvr_rtt || loss_rle_max >= 1 || dup_rle_max >= 1 || rcpt_times_max >= 1;
}
