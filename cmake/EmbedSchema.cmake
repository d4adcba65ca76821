# embed_schema(TARGET): has the schema of job files in a source of the target, and makes it again
# when the file changes.
function(embed_schema target)
  set(schema ${PROJECT_SOURCE_DIR}/share/runlet-job/job.rng)
  file(READ ${schema} RUNLET_SCHEMA)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${schema})
  configure_file(${PROJECT_SOURCE_DIR}/src/tool/verbs/schema_text.cpp.in
    ${PROJECT_BINARY_DIR}/generated/schema_text.cpp @ONLY)
  target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated/schema_text.cpp)
endfunction()
