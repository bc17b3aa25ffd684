# The functions that the store's server keeps, as a header: the target app_cg_store_functions brings store_functions.h.
set(store_functions ${PROJECT_SOURCE_DIR}/builtin/store/functions.lua)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${store_functions})
file(READ ${store_functions} code)
file(SHA1 ${store_functions} digest)
configure_file(${PROJECT_SOURCE_DIR}/builtin/store/functions.h.in
               ${PROJECT_BINARY_DIR}/store_functions/store_functions.h @ONLY)
add_library(app_cg_store_functions INTERFACE)
target_include_directories(app_cg_store_functions INTERFACE ${PROJECT_BINARY_DIR}/store_functions)
