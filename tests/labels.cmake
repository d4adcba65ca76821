# The labels of the tests: CTest reads this once it has asked the programs for their tests, as the
# variable runlet_NAME_tests_TESTS has them. A test has the name of its program for a label, and those
# that its lines here give it. A line for which there is no test is an error.
cmake_policy(VERSION 3.22)

# label(LABEL PROGRAM PATTERN...): for every test of the program runlet_PROGRAM_tests, as Suite.Name,
# that matches one of the regular expressions.
function(label label program)
  if(NOT DEFINED runlet_${program}_tests_TESTS)
    return()  # the program is not built
  endif()
  foreach(pattern IN LISTS ARGN)
    set(tests ${runlet_${program}_tests_TESTS})
    list(FILTER tests INCLUDE REGEX "${pattern}")
    if(NOT tests)
      message(SEND_ERROR "label ${label}: runlet_${program}_tests has no test that matches ${pattern}")
    endif()
    foreach(test IN LISTS tests)
      set_property(GLOBAL APPEND PROPERTY "labels of ${test}" ${label})
    endforeach()
  endforeach()
endfunction()

# long: all short or many random inputs, or several seconds. Not in scripts/test --fast.
label(long model .)
label(long requests .)
label(long unit
  XmlDocument\\.IsWhatTheLibraryLoadsFromRandom)
label(long tool
  BoundedWork\\.IsThatOfTheLibrary DeepJob\\.IsAcceptedByEveryVerb LargeJobTool\\.)

# descriptors: it looks at the open files of the adapter or its tasks, or breaks them. Where lines are
# counted, the file of the counters is one of these.
label(descriptors process
  Child\\.IsNotWaitedForBeyond Launch\\.LeavesOnlyTheOld Streams\\.OfTheChild Streams\\.KeepTheOld
  Inheritance\\.OfATerminal LongRange\\. BrokenStreams\\.)
label(descriptors tool
  TheirThreeStreams IncludeNoTerminal ExecStreams\\.OfThe ExecStreams\\.KeepTheOld
  ExecStreams\\.ThatCannot ExecAsAChild)

# no-descriptors: there are none to spare, not even for a file of counters.
label(no-descriptors process FewDescriptors\\.)

# random-jobs: some lines are run by these alone.
label(random-jobs requests Property\\.)

# not-in-valgrind: what cannot be seen through it, and is left to the other runs of the tests.
label(not-in-valgrind process
  # it gives up where the start of a program fails late, and gives the adapter another name
  Exec\\.ThatFailsIs Program\\. Start\\.AnswersUnder Options\\.ThatAreInvalid
  # it needs processes, memory and descriptors of its own
  NoFork\\. OfTheForkFail ProcessLimit\\. SwitchesBeforeItForks ShortOfMemory\\. FewDescriptors\\.
  BrokenStreams\\. LongRange\\. HostileJobFile\\.OfTheSmallest HostileJobFile\\.WithAHundred
  # it comes between the adapter and its signals and libraries
  OfTheWaitAre IgnoredChildren\\. SignalDuringTheWait\\.ThatStops ThatCannotBeReadToItsEnd
  # hundreds of runs that show nothing more
  ThatShrinksAndGrows
  # it needs the stack of the process, for which valgrind puts one of its own, and takes minutes to
  # go through 200 million levels
  MayBeAsDeepAsTheStackAllows)

foreach(program unit process model requests tool)
  foreach(test IN LISTS runlet_${program}_tests_TESTS)
    get_property(labels GLOBAL PROPERTY "labels of ${test}")
    list(REMOVE_DUPLICATES labels)
    set_tests_properties(${test} PROPERTIES LABELS "${program};${labels}")
    if("random-jobs" IN_LIST labels)
      set_tests_properties(${test} PROPERTIES COST 100)  # the longest of all: to begin with
    elseif("long" IN_LIST labels)
      set_tests_properties(${test} PROPERTIES COST 10)
    endif()
  endforeach()
endforeach()
