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
