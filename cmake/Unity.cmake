# unite_folders(TARGET...): compiles the sources of each folder of these targets as one. They include
# much the same headers, whose parsing takes most of the time.
function(unite_folders)
  foreach(target ${ARGV})
    get_target_property(sources ${target} SOURCES)
    foreach(source ${sources})
      get_filename_component(folder ${source} DIRECTORY)
      string(MAKE_C_IDENTIFIER "${folder}" group)
      set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  endforeach()
endfunction()
