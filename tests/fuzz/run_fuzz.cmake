# Runs the fuzzer on a scratch copy of the corpus, so the inputs it finds
# never land in the source tree.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(GLOB seeds ${CORPUS}/*)
if(seeds)
  file(COPY ${seeds} DESTINATION ${WORK})
endif()
# SECONDS, when given, bounds the run by time as well.
set(time_limit "")
if(SECONDS)
  set(time_limit -max_total_time=${SECONDS})
endif()
execute_process(
  COMMAND ${FUZZER} -seed=1 -runs=${RUNS} ${time_limit} -max_len=16384 -timeout=10 -rss_limit_mb=2048
          -print_final_stats=1 ${WORK}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the fuzzer failed with ${rc}")
endif()
