# The reference network's model without imperfections (no score jitter, misses, false finds, box
# jitter or run time), for tests and benchmarks that hold the model's finds against the scene's
# ground truth. Its path is MIRVANE_IDEAL_MODEL_FILE; depend on mirvane_ideal_model_file.
if(TARGET mirvane-model AND NOT TARGET mirvane_ideal_model_file)
  set(MIRVANE_IDEAL_MODEL_FILE ${PROJECT_BINARY_DIR}/test_models/ideal_model.bin CACHE INTERNAL
    "The host model file without imperfections")
  add_custom_command(OUTPUT ${MIRVANE_IDEAL_MODEL_FILE}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/test_models
    COMMAND mirvane-model write --ideal ${MIRVANE_IDEAL_MODEL_FILE}
    DEPENDS mirvane-model
    COMMENT "Writing the host model file without imperfections")
  add_custom_target(mirvane_ideal_model_file DEPENDS ${MIRVANE_IDEAL_MODEL_FILE})
endif()
