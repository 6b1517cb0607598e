#pragma once

#include <memory>
#include <vector>

#include "phone/settings.h"

struct sip;
struct sip_dialog;
struct sip_lsnr;
struct sip_msg;

namespace fxsphone {

/// When several telephones answer one INVITE of ours, the first has the call; every other answer is acknowledged, and
/// the dialog that it has begun ends with BYE (RFC 3261 section 13.2.2.4). libre's transaction is over with the first.
class forked_answers {
public:
    forked_answers();
    ~forked_answers();
    forked_answers(forked_answers const&) = delete;

    /// Comes before sipsess_listen(), which lets nobody else see the answers. 0, or an error number.
    int begin(sip* stack);
    /// There may be several answers to the INVITE of this dialog, until 32 s after the call (64 T1 of RFC 3261).
    /// `login` answers challenges to BYE.
    void expect(sip_dialog* invited, credentials const& login);

private:
    struct late_answer;
    struct invitation;

    static bool heard(sip_msg const* response, void* arg);

    sip* transactions = nullptr;
    sip_lsnr* responses = nullptr;
    std::vector<std::unique_ptr<invitation>> invitations;
};

}  // namespace fxsphone
