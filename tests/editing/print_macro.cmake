# PrintExcelContents, ExecuteMacro, ChangePassword on real workbooks: one warm
# control, an office of the test's own for fixtures and reading back, the
# CUPS PDF queue of scripts/setup-printer.sh, and the independent readers
# pdfinfo/pdftotext (poppler-utils), msoffcrypto-tool and python3-olefile;
# workbooks with VBA code are made by tests/support/make_vba_workbook.py.
add_executable(print_macro_tests ${CMAKE_CURRENT_LIST_DIR}/print_macro_test.cc)
target_include_directories(print_macro_tests PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
target_compile_definitions(print_macro_tests PRIVATE
  TABULON_SETUP_PRINTER="${PROJECT_SOURCE_DIR}/scripts/setup-printer.sh"
  TABULON_VBA_WORKBOOK="${PROJECT_SOURCE_DIR}/tests/support/make_vba_workbook.py")
target_link_libraries(print_macro_tests PRIVATE tabulon_internal GTest::gtest_main)
add_test(NAME print_macro_tests COMMAND print_macro_tests)
set_tests_properties(print_macro_tests PROPERTIES LABELS office RUN_SERIAL TRUE TIMEOUT 900)
