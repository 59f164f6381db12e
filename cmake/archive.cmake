# The archive for Windows users: cmake --workflow --preset windows-package
configure_file(LICENSE LICENSE.txt @ONLY NEWLINE_STYLE CRLF)
configure_file(docs/windows.txt README.txt @ONLY NEWLINE_STYLE CRLF)
install(TARGETS ztlsim RUNTIME DESTINATION .)
if(TARGET ztl_windows_tests)
  install(TARGETS ztl_windows_tests RUNTIME DESTINATION .)
endif()
# The DLL as it is: installing it as a target would strip it again, and strip puts the time in.
install(FILES $<TARGET_FILE:ztli64x> $<TARGET_FILE:ztli64x>.debug ${ztl_registration_script} ${PROJECT_BINARY_DIR}/LICENSE.txt
  ${PROJECT_BINARY_DIR}/README.txt DESTINATION .)
install(DIRECTORY samples DESTINATION .)
set(CPACK_GENERATOR ZIP)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_PACKAGE_FILE_NAME ztl-${PROJECT_VERSION}-win64)
include(CPack)
