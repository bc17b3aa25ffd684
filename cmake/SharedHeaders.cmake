# One set of precompiled headers for all libraries, for builds that start from nothing: ./run and ./test.
#
# Most of the compile time of a source is headers: the standard library's, the JSON library's, the parser's. The set hides an include
# that a source forgot, so builds for development, for packages and for the static checks do without.
option(APP_CG_SHARED_HEADERS "Precompile one set of headers for all: quicker from nothing, and hides a missing include" OFF)

# share_headers(TARGET [header...]): lets a library use the set, or precompile the headers named when there is none.
function(share_headers target)
    if(NOT APP_CG_SHARED_HEADERS)
        if(ARGN)
            target_precompile_headers(${target} PRIVATE ${ARGN})
        endif()
        return()
    endif()
    if(NOT TARGET shared_headers)
        # A library has to be made of something.
        file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/shared_headers.cpp CONTENT "namespace {}\n")
        add_library(shared_headers OBJECT ${PROJECT_BINARY_DIR}/shared_headers.cpp)
        target_link_libraries(shared_headers PRIVATE app_cg_flags)
        target_compile_definitions(shared_headers PRIVATE _FILE_OFFSET_BITS=64)
        # As what goes into the kit's shared library; the compiler wants all users of the set to agree.
        set_target_properties(shared_headers PROPERTIES POSITION_INDEPENDENT_CODE ON)
        target_precompile_headers(shared_headers PRIVATE <algorithm> <array> <chrono> <cstdint> <functional> <map>
            <memory> <optional> <set> <stdexcept> <string> <string_view> <utility> <variant> <vector>
            <CLI/App.hpp> <nlohmann/json.hpp>)
    endif()
    # Some libraries' packages define this, which changes nothing here but that the set is refused.
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_precompile_headers(${target} REUSE_FROM shared_headers)
endfunction()
