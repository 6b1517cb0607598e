#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/srtp.h"

/// Whole SRTP and SRTCP packets, as functions of bytes and of the keys of one direction. Which stream a packet
/// belongs to and in what order packets are played is not known here.
///
///     SRTP    RTP header (with CSRC list and extension), encrypted payload, MKI, tag
///     SRTCP   first 8 bytes of the RTCP packet, the rest encrypted, E flag (1 bit) and index (31 bits, big-endian),
///             MKI, tag of 10 bytes

/// What follows a packet's encrypted part.
struct srtp_trailer {
    int tag_length;  ///< bytes of the tag; 0 or less: no authentication
    str mki;         ///< master key identifier, may be empty
};

/// Encrypts and authenticates. sequence: extended, bits 16-31 are the rollover counter, bits 0-15 must be what the
/// header carries. `payload` is replaced by its encrypted form.
str srtp_protect(srtp_ctx& tx, str const& header, str& payload, std::uint32_t sequence,
                 srtp_trailer const& trailer);

/// Checks a packet whose header takes header_bytes (at least 12) and decrypts its payload. sequence: the extended
/// number that its low 16 bits were taken for; gets the rollover counter that the tag proved. False: the tag fits
/// none of the rollover counters tried (the current one, +1, -1, +2, +3, and 0), or the packet is shorter than a
/// tag; nothing has changed then, in neither context nor arguments.
///
/// Without authentication the rollover counter stays as it is, and so does the sequence; an MKI is not looked for
/// and counts as payload.
bool srtp_unprotect(srtp_ctx& rx, str const& packet, int header_bytes, std::uint32_t& sequence, str& payload,
                    srtp_trailer const& trailer);

/// Encrypts and authenticates a compound packet. index: 0..65535.
str srtcp_protect(srtp_ctx& tx, str const& packet, unsigned int index, str const& mki);

/// Decrypts a compound packet into `plain`, without index, MKI and tag. The tag is not verified, and it is taken to
/// be as long as the trailer says, although every sender's has 10 bytes. False, with `plain` unchanged: the E flag
/// is clear or the packet is too short to have one.
bool srtcp_unprotect(srtp_ctx& rx, str const& packet, str& plain, srtp_trailer const& trailer);
