# One set of precompiled headers for all libraries, and the sources of a folder read together, for builds that start from
# nothing: ./run and ./test.
#
# Most of the compile time of a source is headers: the standard library's, the JSON library's, the parser's, and the templates
# in them. Both hide an include that a source forgot, and a change of one source compiles its neighbours too, so builds for
# development and for packages do without. The static checks read the sources of a folder together too.
option(APP_CG_SHARED_HEADERS "Have sources share headers: quicker from nothing, and hides a missing include" OFF)

# Sources that name something for themselves which means something else in a neighbour of theirs, and those that some
# tests replace by their own (loop.cpp, client.cpp and what calls it): they have to be objects that can be left out.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/apart.txt sources_apart)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/apart.txt)

# join_sources(TARGET): has the compiler read the sources of a folder together, and so each header once for all of them. What
# one of them names for itself must mean the same in the others, or the source stands in apart.txt.
function(join_sources target)
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "\\.cpp$")
    foreach(source IN LISTS sources)
        cmake_path(ABSOLUTE_PATH source NORMALIZE OUTPUT_VARIABLE path)
        cmake_path(RELATIVE_PATH path BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
        if(NOT path IN_LIST sources_apart)
            cmake_path(GET path PARENT_PATH folder)
            string(MAKE_C_IDENTIFIER "${folder}" group)
            set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
        endif()
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    # It suspects a type of an unnamed namespace in every file but the first.
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endfunction()

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
    join_sources(${target})
endfunction()
