# Plays the user of an installed package: script of the test in CMakeLists.txt beside it.
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "failed with ${result}: ${command}")
    endif()
endfunction()

set(flags "")
if(sanitize STREQUAL "address")
    set(flags "-fsanitize=address,undefined")
elseif(sanitize STREQUAL "thread")
    set(flags "-fsanitize=thread")
endif()

file(REMOVE_RECURSE ${work})

# The README shows the example as it is.
file(READ ${readme} text)
foreach(file main.cpp my.cfg)
    file(READ ${example}/${file} shown)
    string(FIND "${text}" "${shown}" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "the README does not show ${example}/${file} as it is")
    endif()
endforeach()

run(${CMAKE_COMMAND} --install ${build} --prefix ${work}/prefix)
run(${CMAKE_COMMAND} -S ${source} -B ${work}/user -G ${generator}
    -D CMAKE_PREFIX_PATH=${work}/prefix
    -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_CXX_FLAGS=${flags}
    -D CMAKE_COMPILE_WARNING_AS_ERROR=ON
    -D INSTALLED_HEADERS=${work}/prefix/include/nimbralaunchpad)
run(${CMAKE_COMMAND} --build ${work}/user)
run(${CMAKE_COMMAND} -S ${example} -B ${work}/example -G ${generator}
    -D CMAKE_PREFIX_PATH=${work}/prefix
    -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_CXX_FLAGS=${flags})
run(${CMAKE_COMMAND} --build ${work}/example)

# Libraries and default configuration are those of the prefix, whatever is around it.
set(alone ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH --unset=NIMBRA_PREFIX
    --unset=XDG_CONFIG_DIRS XDG_CONFIG_HOME=${work}/empty)
run(${alone} ${work}/user/user ${source}/rules.cfg)
file(COPY ${example}/my.cfg DESTINATION ${work}/robot)
execute_process(COMMAND ${alone} ${work}/example/own-host
    WORKING_DIRECTORY ${work}/robot TIMEOUT 60 OUTPUT_VARIABLE said RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT said STREQUAL "I am coming!\n")
    message(FATAL_ERROR "the example ended with ${result} and said: ${said}")
endif()
execute_process(COMMAND ${alone} ${work}/prefix/bin/nimbra timeline life.jsonl
    WORKING_DIRECTORY ${work}/robot RESULT_VARIABLE result OUTPUT_VARIABLE shown)
if(NOT result EQUAL 0 OR NOT shown MATCHES "1 rule from my.cfg.*● Answer the door.*1 hit of 1 rule\n")
    message(FATAL_ERROR "the example's recording is shown with ${result}:\n${shown}")
endif()
run(${alone} ${work}/prefix/bin/nimbra replay ${work}/robot/life.jsonl)
run(${alone} ${work}/prefix/bin/nimbra check
    ${work}/prefix/share/tessel/autonomy.cfg ${example}/my.cfg)

# The demo day shows every default rule, and nothing that goes wrong.
set(demo ${work}/prefix/share/nimbralaunchpad)
foreach(package companion daydream gestures hall-watch power run_dialog)
    run(${alone} ${work}/prefix/bin/nimbra package install --packages ${work}/packages
        ${demo}/packages/${package})
endforeach()
execute_process(
    COMMAND ${alone} ${work}/prefix/bin/nimbra run --as-fast-as-possible
        --scenario ${demo}/demo-day.scenario.yaml --packages ${work}/packages
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output)
if(NOT result EQUAL 0 OR NOT output MATCHES "\nNever hit: 0\n" OR NOT output MATCHES "\nErrors: 0\n")
    message(FATAL_ERROR "the demo day ended with ${result}:\n${output}")
endif()
