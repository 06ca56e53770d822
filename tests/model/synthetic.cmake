# Hand-built network outputs, shared by the decoder's tests and its benchmark.
if(NOT TARGET mirvane_model_synthetic)
  add_library(mirvane_model_synthetic STATIC ${PROJECT_SOURCE_DIR}/tests/model/nano_track_synthetic.cc)
  target_include_directories(mirvane_model_synthetic PUBLIC ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(mirvane_model_synthetic PUBLIC mirvane_model_decoder PRIVATE mirvane_options)
endif()
