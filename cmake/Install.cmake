# What `cmake --install` installs: the tool, the sample provider, the libraries, and what a host needs to use them.
# The import library is a plug-in, so it is in a folder of its own, outside the search path of the dynamic loader.
include(CMakePackageConfigHelpers)

foreach(folder BIN LIB INCLUDE DATA DOC)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}DIR}")
    message(FATAL_ERROR "CMAKE_INSTALL_${folder}DIR is the absolute path ${CMAKE_INSTALL_${folder}DIR}. The installed "
      "files find each other by relative paths: give it relative to CMAKE_INSTALL_PREFIX.")
  endif()
endforeach()
set(plugin_folder ${CMAKE_INSTALL_LIBDIR}/xmla-import)
set(include_folder ${CMAKE_INSTALL_INCLUDEDIR}/xmla-import)

# Installed files are the same wherever they are built: the compiler writes paths relative to the sources, and to the
# build folder for what is generated. ccache may give it relative paths already. Counters of coverage need the real paths.
if(NOT XMLA_COVERAGE)
  foreach(target xmlahost-objects xmlasax-objects loopbackserver sampleprovider sampleprovidercall toolparts
      xmla-import xmla-sample-provider)
    if(TARGET ${target})
      target_compile_options(${target} PRIVATE
        -ffile-prefix-map=../= -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
        -ffile-prefix-map=${PROJECT_BINARY_DIR}=build -ffile-prefix-map=${PROJECT_BINARY_DIR}/=)
    endif()
  endforeach()
endif()

# The targets of the installed package, for a project that adds this one with add_subdirectory.
add_library(xmla-import-entry INTERFACE)
target_link_libraries(xmla-import-entry INTERFACE xmlahost ${CMAKE_DL_LIBS})
target_compile_definitions(xmla-import-entry INTERFACE XMLA_IMPORT_LIBRARY="$<TARGET_FILE:UtilityXMLASAX>")
add_dependencies(xmla-import-entry UtilityXMLASAX)
add_library(xmla-import::host ALIAS xmlahost)
add_library(xmla-import::entry ALIAS xmla-import-entry)

install(TARGETS xmlahost EXPORT xmla-import
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries NAMELINK_COMPONENT development)
install(TARGETS UtilityXMLASAX LIBRARY DESTINATION ${plugin_folder} COMPONENT libraries NAMELINK_SKIP)
set_target_properties(UtilityXMLASAX PROPERTIES INSTALL_RPATH "$ORIGIN/..")
set_target_properties(xmlahost PROPERTIES INSTALL_RPATH "")

install(DIRECTORY ${PROJECT_SOURCE_DIR}/server/include/Import ${PROJECT_SOURCE_DIR}/server/include/Utility
  DESTINATION ${include_folder} COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN XMLASAX EXCLUDE)
install(EXPORT xmla-import NAMESPACE xmla-import:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/xmla-import
  COMPONENT development FILE xmla-importTargets.cmake)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/xmla-importConfig.cmake.in xmla-importConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/xmla-import PATH_VARS plugin_folder)
write_basic_package_version_file(xmla-importConfigVersion.cmake COMPATIBILITY SameMajorVersion)
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/xmla-import.pc.in xmla-import.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/xmla-importConfig.cmake ${PROJECT_BINARY_DIR}/xmla-importConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/xmla-import COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/xmla-import.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/docs/host-example.cpp ${CMAKE_CURRENT_LIST_DIR}/example/CMakeLists.txt
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

# The documents, with links to where the files are when they are installed. The instructions for changes are not
# installed, nor is the list of versions: Debian's packages have a changelog of their own. Links to them become plain text.
file(GLOB documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
list(APPEND documents ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/SECURITY.md)
file(RELATIVE_PATH include_from_doc /${CMAKE_INSTALL_DOCDIR} /${include_folder})
file(RELATIVE_PATH schema_from_doc /${CMAKE_INSTALL_DOCDIR} /${CMAKE_INSTALL_DATADIR}/xmla-import/schema)
file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/documents) # a document may have been removed
foreach(document ${documents})
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${document})
  get_filename_component(name ${document} NAME)
  file(READ ${document} text)
  string(REGEX REPLACE "\\[([^]]*)\\]\\((CHANGELOG|CONTRIBUTING)\\.md[^)]*\\)" "\\1" text "${text}")
  string(REPLACE "[docs/" "[" text "${text}")
  string(REPLACE "src=\"docs/" "src=\"" text "${text}")
  string(REGEX REPLACE "\\]\\((\\.\\./packaging|\\.\\.|docs)/" "](" text "${text}")
  string(REPLACE "](server/include" "](${include_from_doc}" text "${text}")
  string(REPLACE "](host-example.cpp" "](examples/host-example.cpp" text "${text}")
  string(REPLACE "](schema" "](${schema_from_doc}" text "${text}")
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/documents/${name} CONTENT "${text}" @ONLY)
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/documents/ ${PROJECT_SOURCE_DIR}/docs/images ${PROJECT_SOURCE_DIR}/packaging/fleet
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)

if(XMLA_TOOL)
  install(TARGETS xmla-import xmla-sample-provider RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  file(RELATIVE_PATH libraries_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(xmla-import PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_bin}")
  set_target_properties(xmla-sample-provider PROPERTIES INSTALL_RPATH "")
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/schema DESTINATION ${CMAKE_INSTALL_DATADIR}/xmla-import COMPONENT tools
    FILES_MATCHING PATTERN "*.json")
endif()
if(TARGET manual)
  set(manual ${PROJECT_BINARY_DIR}/manual)
  set(XMLA_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Folder of completion scripts for zsh: Debian's is share/zsh/vendor-completions")
  install(FILES ${manual}/xmla-import.1 ${manual}/xmla-sample-provider.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${manual}/xmla-import-servers.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT tools)
  install(FILES ${manual}/completion.bash RENAME xmla-import
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  install(FILES ${manual}/completion.zsh RENAME _xmla-import DESTINATION ${XMLA_ZSH_COMPLETIONS} COMPONENT tools)
  install(FILES ${manual}/completion.fish RENAME xmla-import.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()
