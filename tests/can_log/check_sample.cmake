# Runs the sample generator into OUT_DIR and compares its files with the
# ones in REFERENCE_DIR.
file(MAKE_DIRECTORY ${OUT_DIR})
execute_process(COMMAND ${GENERATOR} --out ${OUT_DIR} --name sample_drive
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "can_sample_recording failed: ${result}")
endif()
foreach(ext asc log pcapng)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files
                    ${OUT_DIR}/sample_drive.${ext} ${REFERENCE_DIR}/sample_drive.${ext}
                  RESULT_VARIABLE differs)
  if(differs)
    message(FATAL_ERROR "examples/data/sample_drive.${ext} is not what the generator makes now: "
                        "run `make sample` and commit the result")
  endif()
endforeach()
