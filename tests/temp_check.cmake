# The tests' own temporary folder (TMPDIR of every test): "prepare" makes it
# fresh and empty before the first test; "check", after the last, fails the
# run if any test left something in it, and removes it.
if(STEP STREQUAL "prepare")
  file(REMOVE_RECURSE "${DIR}")
  file(MAKE_DIRECTORY "${DIR}")
elseif(STEP STREQUAL "check")
  file(GLOB left RELATIVE "${DIR}" "${DIR}/*") # dot names included
  file(REMOVE_RECURSE "${DIR}")
  if(left)
    message(FATAL_ERROR "left in the temporary folder by the tests: ${left}")
  endif()
else()
  message(FATAL_ERROR "STEP must be prepare or check")
endif()
