#include "phone/referral.h"

#include "phone/registration.h"

#include <string_view>
#include <utility>

namespace fxsphone {

namespace {

constexpr std::uint32_t expires_s = 60;  // as the time-out of a transfer, line_settings::transfer_ms

/// What libre prints with one of its own escaping functions.
std::string printed(re_printf_h* print, pl const& text) {
    char* out = nullptr;
    re_sdprintf(&out, "%H", print, &text);
    std::string const copy = out == nullptr ? "" : out;
    mem_deref(out);
    return copy;
}

int escape(struct re_printf* out, void* text) {
    return uri_header_escape(out, static_cast<pl const*>(text));
}

int unescape(struct re_printf* out, void* text) {
    return uri_header_unescape(out, static_cast<pl const*>(text));
}

pl part(std::string_view text) {
    return {text.data(), text.size()};
}

/// A header's value could end its line and begin others.
bool one_line(std::string const& text) {
    return text.find_first_of("\r\n") == text.npos;
}

}  // namespace

std::optional<referral_target> read_referral(sip_msg const* request) {
    sip_hdr const* const refer_to = sip_msg_hdr(request, SIP_HDR_REFER_TO);
    sip_addr address;
    if (refer_to == nullptr || sip_msg_hdr_count(request, SIP_HDR_REFER_TO) != 1 ||
        sip_addr_decode(&address, &refer_to->val) != 0)
        return std::nullopt;
    std::string const whole = text_of(address.auri);
    if (!whole.starts_with("sip:") && !whole.starts_with("sips:"))
        return std::nullopt;
    referral_target target{whole.substr(0, whole.find('?')), {}};
    pl const replaces = part("Replaces");
    pl value = {};
    if (address.uri.headers.l != 0 && uri_header_get(&address.uri.headers, &replaces, &value) == 0) {
        std::string const dialog = printed(unescape, value);
        if (!one_line(dialog))
            return std::nullopt;
        target.headers = "Replaces: " + dialog + "\r\n";
    }
    if (sip_hdr const* const by = sip_msg_hdr(request, SIP_HDR_REFERRED_BY))
        target.headers += "Referred-By: " + text_of(by->val) + "\r\n";
    return target;
}

std::optional<replaced_call> read_replaces(sip_msg const* request) {
    sip_hdr const* const header = sip_msg_hdr(request, SIP_HDR_REPLACES);
    if (header == nullptr)
        return std::nullopt;
    std::string const value = text_of(header->val);
    pl const parameters = part(value);
    pl tag = {}, end = {};
    replaced_call named;
    named.dialog.call_id = value.substr(0, value.find_first_of("; \t"));
    if (msg_param_decode(&parameters, "to-tag", &tag) == 0)
        named.dialog.local_tag = text_of(tag);
    if (msg_param_decode(&parameters, "from-tag", &tag) == 0)
        named.dialog.remote_tag = text_of(tag);
    named.early_only = msg_param_exists(&parameters, "early-only", &end) == 0;
    return named;
}

std::string takeover_address(sip_call const& call) {
    dialog_id const& known = call.id();
    if (call.far_contact().empty() || known.remote_tag.empty())
        return {};
    // What is remote here is local there.
    std::string const named = known.call_id + ";to-tag=" + known.remote_tag + ";from-tag=" + known.local_tag;
    return call.far_contact() + "?Replaces=" + printed(escape, part(named));
}

// Sent

struct sent_referral::handlers {
    /// The message body is the beginning of a response: RFC 3420.
    static void notified(sip* stack, sip_msg const* request, void* arg) {
        sip_treply(nullptr, stack, request, 200, "OK");
        pl code = {};
        if (request->mb == nullptr || re_regex(reinterpret_cast<char const*>(mbuf_buf(request->mb)),
                                               mbuf_get_left(request->mb), "SIP/2.0 [0-9]3", &code) != 0)
            return;
        std::uint32_t const reached = pl_u32(&code);
        if (reached >= 200)
            static_cast<sent_referral*>(arg)->conclude(reached < 300);
    }
    static void closed(int, sip_msg const*, sipevent_substate const*, void* arg) {
        static_cast<sent_referral*>(arg)->conclude(false);
    }
};

sent_referral::sent_referral(sipevent_sock* events, sip_call const& call, std::string const& user,
                             std::string const& refer_to, outcome_handler told)
    : outcome(std::move(told)) {
    tmr_init(&soon);
    if (call.sip_side() == nullptr || refer_to.empty())
        return;
    sipevent_drefer(&subscription, events, call.sip_side(), user.c_str(), answer_challenge,
                    const_cast<credentials*>(&call.login()), false, handlers::notified, handlers::closed, this,
                    "Refer-To: <%s>\r\n", refer_to.c_str());
}

sent_referral::~sent_referral() {
    tmr_cancel(&soon);
    mem_deref(subscription);
}

/// Not at once: libre still works with the subscription, which the listener may destroy.
void sent_referral::conclude(bool has_reached) {
    if (!outcome || tmr_isrunning(&soon))
        return;
    reached = has_reached;
    auto const tell = [](void* arg) {
        auto* const self = static_cast<sent_referral*>(arg);
        auto const told = std::exchange(self->outcome, nullptr);
        told(self->reached);
    };
    tmr_start(&soon, 0, tell, this);
}

// Taken

taken_referral::taken_referral(sipevent_sock* events, sip_call const& call, std::string const& user,
                               sip_msg const* request) {
    auto const closed = [](int, sip_msg const*, void* arg) {
        auto* const self = static_cast<taken_referral*>(arg);
        self->notifier = static_cast<sipnot*>(mem_deref(self->notifier));
    };
    int const failed = sipevent_accept(&notifier, events, request, call.sip_side(), nullptr, 202, "Accepted", expires_s,
                                       expires_s, expires_s, user.c_str(), "message/sipfrag;version=2.0", nullptr,
                                       nullptr, false, closed, this, nullptr);
    if (failed == 0)
        sipevent_notifyf(notifier, nullptr, SIPEVENT_ACTIVE, SIPEVENT_DEACTIVATED, 0, "SIP/2.0 100 Trying\r\n");
}

taken_referral::~taken_referral() {
    conclude(487);
}

void taken_referral::conclude(int code) {
    if (notifier != nullptr)
        sipevent_notifyf(notifier, nullptr, SIPEVENT_TERMINATED, SIPEVENT_NORESOURCE, 0, "SIP/2.0 %d %s\r\n", code,
                         code < 300 ? "OK" : "Failed");
    notifier = static_cast<sipnot*>(mem_deref(notifier));
}

}  // namespace fxsphone
