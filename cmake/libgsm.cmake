# libgsm as target gsm: the one of cmake/third_party when FXSMEDIA_SOURCES is set, else the one that is installed.
if(TARGET gsm)
    return()
endif()
find_path(GSM_INCLUDE gsm.h PATH_SUFFIXES gsm)
find_library(GSM_LIBRARY gsm)
if(NOT GSM_INCLUDE OR NOT GSM_LIBRARY)
    fxs_missing(libgsm libgsm1-dev)
endif()
add_library(gsm UNKNOWN IMPORTED GLOBAL)
set_target_properties(gsm PROPERTIES
    IMPORTED_LOCATION ${GSM_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${GSM_INCLUDE})

# A library that was built without WAV49 would decode the 65 bytes of a frame pair to silence and report nothing.
set(unchecked "Not checked: whether ${GSM_LIBRARY} was built with WAV49, as frame pairs of 65 bytes need it")
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(WARNING "${unchecked} (no emulator to run a program of the target)")
    return()
endif()
try_run(without_pairs built SOURCES ${CMAKE_CURRENT_LIST_DIR}/gsm_pairs.c
    LINK_LIBRARIES gsm COMPILE_OUTPUT_VARIABLE output NO_CACHE)
if(NOT built)
    message(FATAL_ERROR "A program with ${GSM_LIBRARY} cannot be built:\n${output}")
elseif(without_pairs STREQUAL FAILED_TO_RUN)
    message(WARNING "${unchecked} (a program of the target does not run here)")
elseif(without_pairs)
    message(FATAL_ERROR "${GSM_LIBRARY} was built without WAV49: frame pairs of 65 bytes would be silent. "
        "Install Debian's libgsm1-dev, or let FXSMEDIA_SOURCES build libgsm.")
endif()
