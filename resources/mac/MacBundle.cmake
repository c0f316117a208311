# Turns the vontrel executable into Vontrel.app: Info.plist (a menu-bar agent without a Dock icon until the
# Preferences window asks for one), the icon built by make-icns.sh, and the Chinese catalogue in
# Contents/Resources/i18n, where the language manager looks when the compiled-in resource lacks it.
set(VONTREL_MAC_DIR "${CMAKE_CURRENT_LIST_DIR}")

function(vontrel_mac_bundle target)
    set(icns "${CMAKE_CURRENT_BINARY_DIR}/Vontrel.icns")
    add_custom_command(OUTPUT "${icns}"
        COMMAND "${VONTREL_MAC_DIR}/make-icns.sh" "${PROJECT_SOURCE_DIR}/resources/icons/icon_512x512.png" "${icns}"
        DEPENDS "${VONTREL_MAC_DIR}/make-icns.sh" "${PROJECT_SOURCE_DIR}/resources/icons/icon_512x512.png"
        COMMENT "Building Vontrel.icns"
        VERBATIM)
    set_source_files_properties("${icns}" TARGET_DIRECTORY ${target}
        PROPERTIES GENERATED TRUE MACOSX_PACKAGE_LOCATION Resources)
    target_sources(${target} PRIVATE "${icns}")

    set_target_properties(${target} PROPERTIES
        MACOSX_BUNDLE TRUE
        OUTPUT_NAME Vontrel
        MACOSX_BUNDLE_INFO_PLIST "${VONTREL_MAC_DIR}/Info.plist.in"
        MACOSX_BUNDLE_BUNDLE_NAME Vontrel
        MACOSX_BUNDLE_GUI_IDENTIFIER ${VONTREL_APP_ID}
        MACOSX_BUNDLE_ICON_FILE Vontrel.icns
        MACOSX_BUNDLE_SHORT_VERSION_STRING "${PROJECT_VERSION}"
        MACOSX_BUNDLE_BUNDLE_VERSION "${PROJECT_VERSION}")

    # qt_add_translations writes the catalogue next to the i18n sources' build directory.
    set(catalogue "${PROJECT_BINARY_DIR}/src/i18n/vontrel_zh_CN.qm")
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E make_directory "$<TARGET_BUNDLE_CONTENT_DIR:${target}>/Resources/i18n"
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${catalogue}"
            "$<TARGET_BUNDLE_CONTENT_DIR:${target}>/Resources/i18n/"
        VERBATIM)
endfunction()
