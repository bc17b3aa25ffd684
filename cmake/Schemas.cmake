# The record schemas: protobuf-c's code, and the key-attribute table that a plugin of ours generates.

find_package(Protobuf REQUIRED)
find_program(PROTOC_C_EXECUTABLE protoc-c REQUIRED)
find_path(PROTOBUF_C_INCLUDE_DIR protobuf-c/protobuf-c.h REQUIRED)
find_path(PROTOBUF_C_PROTO_DIR protobuf-c/protobuf-c.proto PATHS /usr/include REQUIRED)
find_library(PROTOBUF_C_LIBRARY protobuf-c REQUIRED)
find_library(PROTOC_LIBRARY protoc REQUIRED)

add_executable(protoc-gen-vxkey ${PROJECT_SOURCE_DIR}/tools/protoc-gen-vxkey/protoc_gen_vxkey.cpp)
target_compile_features(protoc-gen-vxkey PRIVATE cxx_std_17)
target_link_libraries(protoc-gen-vxkey PRIVATE ${PROTOC_LIBRARY} protobuf::libprotobuf)
# A build tool: what it leaks at exit is not the project's concern.
target_compile_options(protoc-gen-vxkey PRIVATE -fno-sanitize=all)
target_link_options(protoc-gen-vxkey PRIVATE -fno-sanitize=all)

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

add_custom_command(
    OUTPUT ${schema_out}/vx_mom_schema_table.h
    COMMAND ${Protobuf_PROTOC_EXECUTABLE} -I${schema_dir} -I${PROTOBUF_C_PROTO_DIR}
            --plugin=protoc-gen-vxkey=$<TARGET_FILE:protoc-gen-vxkey> --vxkey_out=${schema_out} ${schema_protos}
    DEPENDS ${schema_protos} ${schema_dir}/vx_key.proto protoc-gen-vxkey
    COMMENT "Generating the records' key attributes"
    VERBATIM)

add_library(app_cg_schemas STATIC ${schema_sources} ${schema_headers} ${schema_out}/vx_mom_schema_table.h
            ${schema_dir}/schema_registry.c)
# System headers for the users: what protoc-c writes is not held to our warnings.
target_include_directories(app_cg_schemas SYSTEM PUBLIC ${schema_out} ${PROTOBUF_C_INCLUDE_DIR})
target_include_directories(app_cg_schemas PUBLIC ${schema_dir} ${PROJECT_SOURCE_DIR}/platform)
target_link_libraries(app_cg_schemas PUBLIC ${PROTOBUF_C_LIBRARY})
set_target_properties(app_cg_schemas PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
