# ombrel_private_test(NAME LABEL TARGET ARGUMENTS...): a test program that runs in a private root of its own
# (scripts/private-root), gone afterwards. Skipped, with the reason, where the machine refuses namespaces.
function(ombrel_private_test name label target)
  add_test(NAME private.${name}
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/lib/run_private ${CMAKE_BINARY_DIR} $<TARGET_FILE:${target}> ${ARGN})
  set_tests_properties(private.${name} PROPERTIES LABELS ${label} SKIP_RETURN_CODE 77 TIMEOUT 300)
endfunction()
