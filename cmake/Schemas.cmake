# The record schemas: protobuf-c's code, and the key-attribute table that a plugin of ours generates.

set(APP_CG_SCHEMA_TABLE "" CACHE FILEPATH
    "A build's proto/vx_mom_schema_table.h, to be used as it is; without it the table is generated, by libprotoc")

find_program(PROTOC_C_EXECUTABLE protoc-c REQUIRED)
find_path(PROTOBUF_C_INCLUDE_DIR protobuf-c/protobuf-c.h REQUIRED)
find_path(PROTOBUF_C_PROTO_DIR protobuf-c/protobuf-c.proto PATHS /usr/include REQUIRED)
find_library(PROTOBUF_C_LIBRARY protobuf-c REQUIRED)

set(schema_dir ${PROJECT_SOURCE_DIR}/proto)
set(schema_out ${PROJECT_BINARY_DIR}/proto)
file(MAKE_DIRECTORY ${schema_out})
set(schema_stems p_dev p_libpub s_dev)

set(schema_protos)
set(schema_sources)
set(schema_headers)
foreach(stem IN LISTS schema_stems)
    list(APPEND schema_protos ${schema_dir}/${stem}.proto)
    list(APPEND schema_sources ${schema_out}/${stem}.pb-c.c)
    list(APPEND schema_headers ${schema_out}/${stem}.pb-c.h)
endforeach()

add_custom_command(
    OUTPUT ${schema_sources} ${schema_headers}
    COMMAND ${PROTOC_C_EXECUTABLE} -I${schema_dir} -I${PROTOBUF_C_PROTO_DIR} --c_out=${schema_out} ${schema_protos}
    DEPENDS ${schema_protos} ${schema_dir}/vx_key.proto
    COMMENT "Generating the records' C code"
    VERBATIM)

# The plugin is a program of the machine that builds. Whoever compiles for another one has a compiler of each, and CMake
# knows the target's alone: the plugin is a project of its own then, which looks at none of the target's settings.
if(APP_CG_SCHEMA_TABLE)
    configure_file(${APP_CG_SCHEMA_TABLE} ${schema_out}/vx_mom_schema_table.h COPYONLY)
else()
    set(plugin_folder ${PROJECT_SOURCE_DIR}/tools/protoc-gen-vxkey)
    find_program(PROTOC_EXECUTABLE protoc REQUIRED)
    if(CMAKE_CROSSCOMPILING)
        include(ExternalProject)
        find_program(APP_CG_NATIVE_CXX NAMES c++ g++ clang++ REQUIRED
                     DOC "C++ compiler for the machine that builds, when compiling for another one")
        set(plugin ${PROJECT_BINARY_DIR}/build_tools/protoc-gen-vxkey)
        ExternalProject_Add(build_tools
            SOURCE_DIR ${plugin_folder}
            BINARY_DIR ${PROJECT_BINARY_DIR}/build_tools
            CMAKE_ARGS -DCMAKE_CXX_COMPILER=${APP_CG_NATIVE_CXX} -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=
                       -DCMAKE_EXE_LINKER_FLAGS= -DCMAKE_TOOLCHAIN_FILE=
            INSTALL_COMMAND ""
            BUILD_ALWAYS ON
            BUILD_BYPRODUCTS ${plugin})
        set(plugin_made build_tools ${plugin})
    else()
        add_subdirectory(${plugin_folder} ${PROJECT_BINARY_DIR}/build_tools)
        set(plugin $<TARGET_FILE:protoc-gen-vxkey>)
        set(plugin_made protoc-gen-vxkey)
    endif()
    add_custom_command(
        OUTPUT ${schema_out}/vx_mom_schema_table.h
        COMMAND ${PROTOC_EXECUTABLE} -I${schema_dir} -I${PROTOBUF_C_PROTO_DIR}
                --plugin=protoc-gen-vxkey=${plugin} --vxkey_out=${schema_out} ${schema_protos}
        DEPENDS ${schema_protos} ${schema_dir}/vx_key.proto ${plugin_made}
        COMMENT "Generating the records' key attributes"
        VERBATIM)
endif()

add_library(app_cg_schemas STATIC ${schema_sources} ${schema_headers} ${schema_out}/vx_mom_schema_table.h
            ${schema_dir}/schema_registry.c)
# System headers for the users: what protoc-c writes is not held to our warnings.
target_include_directories(app_cg_schemas SYSTEM PUBLIC ${schema_out} ${PROTOBUF_C_INCLUDE_DIR})
target_include_directories(app_cg_schemas PUBLIC ${schema_dir} ${PROJECT_SOURCE_DIR}/platform)
target_link_libraries(app_cg_schemas PUBLIC ${PROTOBUF_C_LIBRARY})
set_target_properties(app_cg_schemas PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
