#pragma once

/// Numbers of RTCP that its writers and readers share (RFC 3550, RFC 3611).
namespace rtcp {

/// Packet types.
namespace packet_type {
constexpr int sender_report = 200;              // RFC 3550 section 12.1
constexpr int receiver_report = 201;            // RFC 3550 section 12.1
constexpr int source_description = 202;         // RFC 3550 section 12.1
constexpr int bye = 203;                        // RFC 3550 section 12.1
constexpr int application = 204;                // RFC 3550 section 12.1
constexpr int transport_feedback = 205;         // RFC 4585 section 6.1
constexpr int payload_specific_feedback = 206;  // RFC 4585 section 6.1
constexpr int extended_report = 207;            // RFC 3611 section 2
}  // namespace packet_type

/// Abbreviations of the types from sender_report to extended_report.
inline constexpr char const* packet_type_names[] = {"SR", "RR", "SDES", "BYE", "APP", "RTPFB", "PSFB", "XR"};

/// Bytes of a packet's header, of what a sender report has behind its SSRC, and of a report block (RFC 3550 section
/// 6.4.1).
namespace size {
constexpr int header = 4;
constexpr int sender_info = 20;
constexpr int report_block = 24;
}  // namespace size

/// Item of a source description: canonical name (RFC 3550 section 6.5.1).
constexpr int cname_item = 1;

/// Block types of extended reports, RFC 3611 section 4.
namespace xr_block_type {
constexpr int loss_rle = 1;
constexpr int duplicate_rle = 2;
constexpr int receipt_times = 3;
constexpr int receiver_reference_time = 4;
constexpr int dlrr = 5;
constexpr int statistics_summary = 6;
constexpr int voip_metrics = 7;
}  // namespace xr_block_type

/// Flags of a statistics summary: which of its values mean something (RFC 3611 section 4.6).
constexpr int summary_has_loss = 0x80;
constexpr int summary_has_duplicates = 0x40;
constexpr int summary_has_jitter = 0x20;

/// Received packets in a row that end a burst; the value that RFC 3611 section 4.7.2 recommends.
constexpr int gmin = 16;
/// Levels, echo return loss and quality scores that are not measured (RFC 3611 section 4.7.3).
constexpr int unavailable = 127;

}  // namespace rtcp
