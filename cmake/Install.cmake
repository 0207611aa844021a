# What `cmake --install` puts where besides the program and its GUI module
# (src/ installs those), and the Debian package that CPack makes of it.
set(LIMITRA_APP_ID app.limitra.Limitra)
set(LIMITRA_DATA ${PROJECT_SOURCE_DIR}/data)

install(FILES ${LIMITRA_DATA}/${LIMITRA_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
# The application icon and the tray's symbolic icons: whatever lies in the tree.
install(DIRECTORY ${LIMITRA_DATA}/icons/hicolor DESTINATION ${CMAKE_INSTALL_DATADIR}/icons
    FILES_MATCHING PATTERN "*.svg")

configure_file(${LIMITRA_DATA}/${LIMITRA_APP_ID}.metainfo.xml.in
    ${PROJECT_BINARY_DIR}/data/${LIMITRA_APP_ID}.metainfo.xml @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/data/${LIMITRA_APP_ID}.metainfo.xml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

# Debian wants the manual page and the changelog compressed, without a time stamp.
set(LIMITRA_COMPRESSED)
foreach(file IN ITEMS limitra.1 changelog)
    set(out ${PROJECT_BINARY_DIR}/data/${file}.gz)
    add_custom_command(OUTPUT ${out}
        COMMAND ${CMAKE_COMMAND} -E copy ${LIMITRA_DATA}/${file} ${PROJECT_BINARY_DIR}/data/${file}
        COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/data/${file}
        DEPENDS ${LIMITRA_DATA}/${file}
        VERBATIM)
    list(APPEND LIMITRA_COMPRESSED ${out})
endforeach()
add_custom_target(limitra_data ALL DEPENDS ${LIMITRA_COMPRESSED})
install(FILES ${PROJECT_BINARY_DIR}/data/limitra.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_BINARY_DIR}/data/changelog.gz ${LIMITRA_DATA}/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/limitra)

include(${CMAKE_CURRENT_LIST_DIR}/Package.cmake)
