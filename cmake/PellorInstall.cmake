# Installation: libraries, public headers under <includedir>/pellor, the program, and the package for find_package(pellor).
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pellor)
set(libraries pellor_runtime pellor_platform pellor pellor_list pellor_testing)
if(PELLOR_LINUX)
  list(APPEND libraries pellor_linux pellor_services pellor_app)
endif()
foreach(adapter IN LISTS PELLOR_BUILT_ADAPTERS)
  list(APPEND libraries pellor_${adapter})
endforeach()

foreach(library IN LISTS libraries)
  install(TARGETS ${library} EXPORT pellorTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()
install(EXPORT pellorTargets NAMESPACE pellor:: DESTINATION ${package_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pellorConfig.cmake.in ${PROJECT_BINARY_DIR}/pellorConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/pellorConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/pellorConfig.cmake ${PROJECT_BINARY_DIR}/pellorConfigVersion.cmake
  DESTINATION ${package_dir})
if(PELLOR_LINUX)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/PellorLinuxLibraries.cmake DESTINATION ${package_dir})
endif()
if(TARGET pellor_cli)
  install(TARGETS pellor_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The program describes itself: arguments of `pellor`, the file of its answer, and where that goes.
  function(pellor_install_answer arguments file destination)
    set(answer ${PROJECT_BINARY_DIR}/answers/${destination}/${file})
    install(CODE "file(MAKE_DIRECTORY \"${PROJECT_BINARY_DIR}/answers/${destination}\")
      execute_process(COMMAND \"$<TARGET_FILE:pellor_cli>\" ${arguments} OUTPUT_FILE \"${answer}\"
        COMMAND_ERROR_IS_FATAL ANY)")
    install(FILES ${answer} DESTINATION ${destination})
  endfunction()
  pellor_install_answer("help --man" pellor.1 ${CMAKE_INSTALL_MANDIR}/man1)
  pellor_install_answer("completion bash" pellor ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  pellor_install_answer("completion zsh" _pellor ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  pellor_install_answer("completion fish" pellor.fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
if(TARGET pellor_services_cli)
  install(TARGETS pellor_services_cli RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/pellor)
endif()
