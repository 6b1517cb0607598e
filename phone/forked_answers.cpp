#include "phone/forked_answers.h"

#include <algorithm>

#include "phone/digest.h"
#include "phone/libre.h"

namespace fxsphone {

namespace {

/// The way back of a response (RFC 3261 section 12.1.2), as header fields.
struct route_set {
    std::string headers;
    uri first;
};

route_set routes_of(sip_msg const* response) {
    route_set all{};
    constexpr bool from_the_last = false;
    sip_msg_hdr_apply(
        response, from_the_last, SIP_HDR_RECORD_ROUTE,
        [](sip_hdr const* header, sip_msg const*, void* arg) {
            auto& so_far = *static_cast<route_set*>(arg);
            sip_addr address;
            if (sip_addr_decode(&address, &header->val) != 0)
                return false;
            if (so_far.headers.empty())
                so_far.first = address.uri;
            so_far.headers += "Route: " + text_of(header->val) + "\r\n";
            return false;
        },
        &all);
    return all;
}

}  // namespace

/// The dialog of a telephone that has answered too late, as its answer tells of it.
struct forked_answers::late_answer {
    late_answer(sip* stack, sip_msg const* response, credentials const& own)
        : transactions(stack),
          answer(static_cast<sip_msg*>(mem_ref(const_cast<sip_msg*>(response)))),
          login(own),
          number(response->cseq.num) {}
    ~late_answer() {
        mem_deref(bye);
        mem_deref(answer);
    }
    late_answer(late_answer const&) = delete;

    void acknowledge() { send("ACK", answer->cseq.num, nullptr); }
    void end() {
        number++;
        send("BYE", number, &bye);
    }

    sip* transactions;
    sip_msg* answer;
    credentials const& login;
    digest_answers proofs;
    std::uint32_t number;  ///< of the last request
    struct sip_request* bye = nullptr;

private:
    static void ended(int, sip_msg const* response, void* arg) {
        auto& self = *static_cast<late_answer*>(arg);
        bool const challenged = response != nullptr && (response->scode == 401 || response->scode == 407);
        if (challenged && self.proofs.take(response, self.login).empty())
            self.end();
    }
    void send(char const* method, std::uint32_t cseq, struct sip_request** under_way) {
        sip_hdr const* const contact = sip_msg_hdr(answer, SIP_HDR_CONTACT);
        sip_addr address;
        if (contact == nullptr || sip_addr_decode(&address, &contact->val) != 0)
            return;
        std::string const target = text_of(address.auri);
        route_set const way = routes_of(answer);
        sip_requestf(under_way, transactions, under_way != nullptr, method, target.c_str(),
                     way.headers.empty() ? nullptr : &way.first, nullptr, nullptr, ended, this,
                     "%sTo: %r\r\nFrom: %r\r\nCall-ID: %r\r\nCSeq: %u %s\r\n%sContent-Length: 0\r\n\r\n",
                     way.headers.c_str(), &answer->to.val, &answer->from.val, &answer->callid, cseq, method,
                     proofs.headers(method, target).c_str());
    }
};

struct forked_answers::invitation {
    invitation(sip_dialog* invited, credentials const& own)
        : dialog(static_cast<sip_dialog*>(mem_ref(invited))), login(own) {}
    ~invitation() { mem_deref(dialog); }
    invitation(invitation const&) = delete;

    /// libre keeps it as long as the session, and 32 s for the ACK that it may have to repeat.
    bool is_over() const { return mem_nrefs(dialog) == 1; }

    sip_dialog* dialog;
    credentials const& login;
    std::vector<std::unique_ptr<late_answer>> late;
};

forked_answers::forked_answers() = default;

forked_answers::~forked_answers() {
    mem_deref(responses);
}

int forked_answers::begin(sip* stack) {
    transactions = stack;
    return sip_listen(&responses, stack, false, heard, this);
}

void forked_answers::expect(sip_dialog* invited, credentials const& login) {
    std::erase_if(invitations, [](auto const& one) { return one->is_over(); });
    invitations.push_back(std::make_unique<invitation>(invited, login));
}

/// Hears responses that belong to no transaction. What belongs to the call itself is left to libre, which repeats its
/// ACK. true: it was for us.
bool forked_answers::heard(sip_msg const* response, void* arg) {
    constexpr std::size_t most_answers = 16;  // further ones are ignored: they would only cost memory
    auto& self = *static_cast<forked_answers*>(arg);
    auto const call = std::ranges::find_if(self.invitations, [&](auto const& one) {
        return sip_dialog_cmp_half(one->dialog, response) && !sip_dialog_cmp(one->dialog, response);
    });
    bool const accepts = pl_strcmp(&response->cseq.met, "INVITE") == 0 && response->scode / 100 == 2;
    if (!accepts || call == self.invitations.end())
        return false;
    auto& late = (*call)->late;
    auto const known = std::ranges::find_if(
        late, [&](auto const& one) { return pl_cmp(&one->answer->to.tag, &response->to.tag) == 0; });
    if (known != late.end()) {
        (*known)->acknowledge();
    } else if (late.size() < most_answers) {
        late.push_back(std::make_unique<late_answer>(self.transactions, response, (*call)->login));
        late.back()->acknowledge();
        late.back()->end();
    }
    return true;
}

}  // namespace fxsphone
