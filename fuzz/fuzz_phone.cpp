// fxsphone's own doors: what the driver says, what the media process reports, the configuration.

#include <algorithm>
#include <string>

#include "fuzz/fuzz_target.h"
#include "phone/call_media.h"
#include "phone/configuration.h"
#include "phone/driver_words.h"
#include "phone/line.h"
#include "tests/support/bytes.h"

namespace {

using fxsphone::happening;
using fxsphone::order;
using fxsphone::order_kind;

fxsphone::line_settings settings_of(fuzz_input& input) {
    unsigned const bits = input.byte();
    fxsphone::line_settings chosen;
    chosen.flash = static_cast<fxsphone::flash_use>(bits % 3);
    chosen.transfer = (bits & 4) != 0;
    chosen.howl_ms = (bits & 8) != 0 ? 100 : 0;
    chosen.hot_line = (bits & 16) != 0 ? "sip:hot" : "";
    chosen.codes = {{"*1", fxsphone::feature::forward_always},
                    {"#1", fxsphone::feature::forward_off},
                    {"*2", fxsphone::feature::do_not_disturb},
                    {"*3", fxsphone::feature::call_back}};
    return chosen;
}

/// Which channels a line has, from its orders.
struct phone_ledger {
    bool open[2] = {};
    bool ringing = false;

    void keep(std::vector<order> const& orders, fxsphone::line const& telephone) {
        for (order const& one : orders) {
            bool const opens = one.kind == order_kind::open || one.kind == order_kind::follow;
            FUZZ_CHECK(!opens || !open[one.leg]);
            open[one.leg] = one.kind != order_kind::hang_up && (open[one.leg] || opens);
            ringing = one.kind == order_kind::ring || (ringing && one.kind != order_kind::stop_ringing);
        }
        FUZZ_CHECK(ringing == telephone.rings());
        FUZZ_CHECK(telephone.now_in() != fxsphone::line::state::on_hook || (!open[0] && !open[1]));
        FUZZ_CHECK(open[1 - telephone.front_leg()] == (telephone.beside() != fxsphone::line::second::none));
    }
};

std::vector<order> hear_driver(fxsphone::line& telephone, std::string const& text, std::int64_t now) {
    auto const word = fxsphone::read_driver_word(text);
    if (!word)
        return {};
    FUZZ_CHECK(word->line >= 0 && word->line < 4);
    switch (word->what) {
        case fxsphone::driver_word::kind::off_hook: return telephone.lift(now);
        case fxsphone::driver_word::kind::on_hook: return telephone.replace(now);
        case fxsphone::driver_word::kind::key: return telephone.press(word->key, now);
    }
    return {};
}

std::vector<order> hear_far_end(fxsphone::line& telephone, fuzz_input& input, phone_ledger& kept, std::int64_t now) {
    constexpr happening all[] = {happening::far_rings,       happening::far_answers, happening::far_busy,
                                 happening::far_fails,       happening::far_ends,    happening::transferred,
                                 happening::transfer_failed, happening::invited,     happening::referred};
    happening const what = all[input.below(std::size(all))];
    int leg = input.below(2);
    if (what == happening::invited) {
        auto const free = telephone.free_leg();
        if (!free)
            return {};
        leg = *free;
        kept.open[leg] = true;  // its owner opens it before the line is told
    }
    if (what == happening::referred && !telephone.can_follow(leg))
        return {};
    return telephone.far(what, leg, now);
}

}  // namespace

/// A byte of settings, then steps: 0 a line of the driver (its length in a byte), 1 something of the far ends, 2 the
/// process starts anew, others time.
FUZZ_TARGET(phone_line) {
    fxsphone::line telephone(fxsphone::dial_plan({{"1x", "sip:{}"}, {"0.", "sip:{}"}}), settings_of(input));
    phone_ledger kept;
    std::int64_t now = 1;
    while (input.more()) {
        switch (input.below(4)) {
            case 0: kept.keep(hear_driver(telephone, to_string(input.bytes(input.byte())), now), telephone); break;
            case 1: kept.keep(hear_far_end(telephone, input, kept, now), telephone); break;
            case 2: kept.keep(telephone.restart(now), telephone); break;
            default: now += input.word(); kept.keep(telephone.pass_time(now), telephone);
        }
        FUZZ_CHECK(telephone.due_ms().value_or(now + 1) > now - 1);
    }
}

/// Copies of RTCP packets, each behind a byte that tells whether it was received, and its length.
FUZZ_TARGET(phone_media) {
    fxsphone::call_media media;
    std::int64_t now = 1;
    while (input.more(50)) {
        bool const received = input.below(2) == 1;
        str const packet = input.piece();
        media.rtcp(received, fxsmedia::byte_view(packet.cbuffer(), static_cast<std::size_t>(packet.length())), now++);
        FUZZ_CHECK(media.last_heard_ms() < now);
    }
    FUZZ_CHECK(!media.quality().dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).empty());
}

/// The input is a file.
FUZZ_TARGET(phone_configuration) {
    fxsphone::configuration const read = fxsphone::read_configuration(to_string(input.rest()), "f");
    FUZZ_CHECK(read.settings.has_value() == read.problem.empty());
    FUZZ_CHECK(read.settings.has_value() ||
               (read.problem.starts_with("f:") && read.problem[2] >= '0' && read.problem[2] <= '9'));
    if (read.settings)
        FUZZ_CHECK(!read.settings->telephones.empty());
}
