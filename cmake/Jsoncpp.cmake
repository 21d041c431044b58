# jsoncpp as an imported target, found by file so that a 32-bit build finds the 32-bit library.
find_path(JSONCPP_INCLUDE_DIR json/json.h PATH_SUFFIXES jsoncpp REQUIRED)
find_library(JSONCPP_LIBRARY jsoncpp REQUIRED)
add_library(jsoncpp::jsoncpp UNKNOWN IMPORTED)
set_target_properties(jsoncpp::jsoncpp PROPERTIES
    IMPORTED_LOCATION ${JSONCPP_LIBRARY}
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${JSONCPP_INCLUDE_DIR}
    INTERFACE_INCLUDE_DIRECTORIES ${JSONCPP_INCLUDE_DIR})
