# Where everything goes on a system: where Debian would put it. With -DCMAKE_INSTALL_PREFIX=/usr the plug-in is
# /usr/lib/TRIPLET/dnspair/libdns-parser.so; hosts ask "pkg-config --variable=plugindir dnspair".
set(DNSPAIR_SYSTEMD_UNIT_DIR ${CMAKE_INSTALL_PREFIX}/lib/systemd/system CACHE PATH "Where systemd looks for units")

install(TARGETS dns-parser LIBRARY DESTINATION ${DNSPAIR_PLUGIN_DIR})
install(DIRECTORY host DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dnspair FILES_MATCHING PATTERN "*.h")
configure_file(cmake/dnspair.pc.in dnspair.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/dnspair.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# They lie to each other as in the tree, so that their links hold.
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md" PATTERN "*.json" PATTERN man EXCLUDE)

if(DNSPAIR_HOST)
  install(TARGETS dnspair RUNTIME)
  install(DIRECTORY ${CMAKE_BINARY_DIR}/manual/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES completions/dnspair.bash RENAME dnspair DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES completions/_dnspair DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
  install(FILES completions/dnspair.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  configure_file(systemd/dnspair.service.in systemd/dnspair.service @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/systemd/dnspair.service DESTINATION ${DNSPAIR_SYSTEMD_UNIT_DIR})
  install(FILES systemd/dnspair.default RENAME dnspair DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default)
endif()
