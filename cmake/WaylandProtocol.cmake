# vontrel_wayland_protocol(<target> <xml>)
#
# Generates the client header and the interface code of a Wayland protocol with wayland-scanner, compiles the
# code into <target> and puts the header on its include path. The code is generated C, so it is compiled on
# its own, without the project's C++ warning options.
function(vontrel_wayland_protocol target xml)
    get_filename_component(base "${xml}" NAME_WE)
    set(dir "${CMAKE_CURRENT_BINARY_DIR}/wayland-protocols")
    set(header "${dir}/${base}-client-protocol.h")
    set(code "${dir}/${base}-protocol.c")
    add_custom_command(
        OUTPUT "${header}" "${code}"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${dir}"
        COMMAND "${WAYLAND_SCANNER}" client-header "${xml}" "${header}"
        COMMAND "${WAYLAND_SCANNER}" private-code "${xml}" "${code}"
        DEPENDS "${xml}"
        VERBATIM)
    add_library(${target}_${base} OBJECT "${code}" "${header}")
    target_link_libraries(${target}_${base} PRIVATE PkgConfig::WAYLAND_CLIENT)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${target}_${base}> "${header}")
    target_include_directories(${target} PRIVATE "${dir}")
    target_link_libraries(${target} PRIVATE PkgConfig::WAYLAND_CLIENT)
endfunction()
