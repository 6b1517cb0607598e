#pragma once

#include <vector>

#include "phone/configuration_section.h"
#include "phone/settings.h"

namespace fxsphone {

/// Parts of the configuration file. A mistake is thrown as a `complaint`.

/// The [[registrar]] tables of the file. `instance` is the device's, which outbound needs.
std::vector<registrar_settings> read_registrars(section& whole, std::string const& instance);

/// The keys srtp and xr of a [[line]].
void read_media(section& line, telephone_settings& one);

/// [network]
void read_network(section& network, phone_settings& settings);

/// [tls]
void read_tls(section& tls, tls_settings& chosen);

/// What a [[line]] says of its registrar: which one, the name there and the password, which may stand in another file
/// or in the environment.
void read_login(section& line, std::vector<registrar_settings> const& registrars, telephone_settings& one);

}  // namespace fxsphone
