#pragma once

#include <memory>
#include <vector>

#include "phone/registration.h"
#include "phone/telephone.h"

namespace fxsphone {

/// The registrations of all telephones that have a registrar.
class registrations {
public:
    /// One after the other, and not at the same moment as every other device that has got its power back.
    void begin(sip* stack, telephone_list const& telephones, std::string const& instance);
    /// Takes them off their registrars, in the SIP stack's own time.
    void end();
    /// There are telephones to be registered, and their registrars know where they are.
    bool all_hold() const;

private:
    std::vector<std::unique_ptr<registration>> all;
};

}  // namespace fxsphone
