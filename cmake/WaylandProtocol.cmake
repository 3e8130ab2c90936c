# Client code for a Wayland protocol, generated from its XML description by wayland-scanner and
# added to target: the header (included by its name, "<protocol>-client-protocol.h") and the
# interface tables (C).
find_program(WAYLAND_SCANNER wayland-scanner REQUIRED)

function(quillmar_wayland_protocol target xml)
    get_filename_component(name ${xml} NAME_WE)
    set(out ${CMAKE_BINARY_DIR}/wayland-protocols)
    file(MAKE_DIRECTORY ${out})
    add_custom_command(
        OUTPUT ${out}/${name}-client-protocol.h ${out}/${name}-protocol.c
        COMMAND ${WAYLAND_SCANNER} client-header ${xml} ${out}/${name}-client-protocol.h
        COMMAND ${WAYLAND_SCANNER} private-code ${xml} ${out}/${name}-protocol.c
        DEPENDS ${xml}
        VERBATIM)
    target_sources(${target} PRIVATE ${out}/${name}-client-protocol.h ${out}/${name}-protocol.c)
    target_include_directories(${target} PRIVATE ${out})
endfunction()
