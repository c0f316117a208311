# vontrel_add_test(NAME <name> SOURCES <files...> [LABELS <labels...>] [LIBRARIES <libs...>] [GUILESS])
#
# One Qt Test executable under CTest. Every test runs through tests/support/run-test.sh, which gives it a
# private HOME, XDG_CONFIG_HOME and TMPDIR; a test labelled x11 also gets an Xvfb server of its own, one
# labelled wayland a Wayland compositor (weston, or a headless sway with the real portals when also labelled
# sway) and a private session bus, one labelled dbus the private bus
# on the offscreen platform; the others run on the offscreen platform without a bus. Tests labelled x11,
# wayland or dbus exercise the Linux backend and exist only where it is built.
# A test's file is named after it: test_<name>.cpp builds test_<name> (a variant of another test's file,
# built with a define, is the one exception).
function(vontrel_add_test)
    cmake_parse_arguments(ARG "GUILESS" "NAME;TIMEOUT" "SOURCES;LABELS;LIBRARIES" ${ARGN})
    if(("x11" IN_LIST ARG_LABELS OR "wayland" IN_LIST ARG_LABELS OR "dbus" IN_LIST ARG_LABELS)
       AND NOT VONTREL_PLATFORM STREQUAL "linux")
        return()
    endif()
    add_executable(${ARG_NAME} ${ARG_SOURCES})
    target_link_libraries(${ARG_NAME} PRIVATE vontrel_widgets vontrel_testsupport Qt6::Test ${ARG_LIBRARIES})
    set(mode offscreen)
    if("x11" IN_LIST ARG_LABELS)
        set(mode x11)
    elseif("sway" IN_LIST ARG_LABELS)
        set(mode sway)
    elseif("wayland" IN_LIST ARG_LABELS)
        set(mode wayland)
    elseif("dbus" IN_LIST ARG_LABELS)
        set(mode dbus)
    endif()
    add_test(NAME ${ARG_NAME}
        COMMAND "${PROJECT_SOURCE_DIR}/tests/support/run-test.sh" ${mode} $<TARGET_FILE:${ARG_NAME}>)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set_tests_properties(${ARG_NAME} PROPERTIES
        LABELS "${ARG_LABELS}"
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "VONTREL_SOURCE_DIR=${PROJECT_SOURCE_DIR};VONTREL_BINARY_DIR=${PROJECT_BINARY_DIR};LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp:print_suppressions=0;UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
endfunction()
