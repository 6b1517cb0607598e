// A compound packet as the process sends it, with every block it knows, for the tests of the RTCP views.
#pragma once

#include "tools/protocol/hex.h"

inline const char* const sender_report_hex =
    "81c8000c 11111111 83aa7e80 80000000 000003e8 00000064 00003e80"  // 1970-01-01 00:00:00.5
    "22222222 40ffffff 00010005 00000050 7e808000 00010000";          // 25 %, -1 lost, DLSR 1 s

inline const char* const cname_hex = "81ca0003 11111111 0104 56454c4b 00 00";

inline const char* const voip_metrics_hex =
    "07000008 22222222 80400201 00641388 00140000 7f7f7f10 00000000 0014 0028 3c00 ffff";

inline protocol::bytes whole_compound() {
    return protocol::from_hex(
               std::string(sender_report_hex) + cname_hex +
               "80cf002b 11111111"
               "01000004 22222222 00010064 406390aa 4001 0000"
               "02030003 22222222 00000010 80030000"
               "03000006 22222222 00010003 000000a0 00000140 00080009 00000780"
               "06e00009 22222222 00010064 00000003 00000001 00000002 00000009 00000004 00000001 "
               "00000000" +
               voip_metrics_hex +
               "04000002 83aa7e80 40000000"
               "05000003 22222222 7e808000 00008000")
        .value();
}
