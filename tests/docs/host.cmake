# The command line of kiv: for each case what it is given, its exit status, and what it must print.
#   cmake -DKIV=... [-DEMULATOR=...] -DWORK=... -P host.cmake
set(hello ${CMAKE_CURRENT_LIST_DIR}/../../examples/hello.kivpat)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/empty "")
set(failed "")

# expect(STATUS PATTERN INPUT ARGUMENTS...): INPUT is a file for standard input; both standard
# output and standard error are matched.
function(expect status pattern input)
    execute_process(COMMAND ${EMULATOR} ${KIV} ${ARGN} WORKING_DIRECTORY ${WORK} INPUT_FILE ${input}
        OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE result TIMEOUT 60)
    if(NOT result STREQUAL status OR NOT printed MATCHES "${pattern}")
        message("kiv ${ARGN}\nended with ${result} and not ${status}, or printed no \"${pattern}\":\n${printed}")
        set(failed yes PARENT_SCOPE)
    endif()
endfunction()

expect(0 "^kiv [0-9]+\\." empty --version)
expect(0 "--until-idle" empty --help)
expect(2 "required" empty)
expect(2 "--nonsense" empty --nonsense ${hello})
foreach(seconds abc -1 nan inf "5 s")
    expect(2 "is no number of seconds" empty --for ${seconds} ${hello})
endforeach()
expect(2 "neither text nor json" empty --console 1 ${hello})
expect(2 "one document only" empty - -)
expect(2 "holds the document" empty --interactive -)
expect(0 "^print: Hello from Kiv\n$" empty --for 0 ${hello})
expect(0 "^print: Hello from Kiv\n$" ${hello} --until-idle -)
expect(1 "not a patcher document" empty -)
expect(1 "error 2 opening nofile" empty nofile)
expect(1 "error 2 opening nofile\nprint: Hello" empty --for 0 nofile ${hello})
expect(0 "error: a: no such object\nerror: b: no such object" empty --for 0 --send "a 1" --send "b" ${hello})
expect(0 "\"kind\":\"error\",\"text\":\"a: no such object\"" empty --console json --for 0 --send a ${hello})
expect(0 "" empty --send "; kiv quit" ${hello})
expect(0 "" empty --interactive ${hello})
# With --until-idle the end of input lets what was begun end; without, it quits.
file(WRITE ${WORK}/delayed.kivpat "{\"patcher\": {\"boxes\": [{\"box\": {\"kivclass\": \"newobj\",
    \"id\": \"a\", \"text\": \"r in\"}}, {\"box\": {\"kivclass\": \"newobj\", \"id\": \"b\", \"text\": \"pipe 50\"}},
    {\"box\": {\"kivclass\": \"newobj\", \"id\": \"c\", \"text\": \"print late\"}}], \"lines\": [
    {\"patchline\": {\"source\": [\"a\", 0], \"destination\": [\"b\", 0]}},
    {\"patchline\": {\"source\": [\"b\", 0], \"destination\": [\"c\", 0]}}]}}")
file(READ ${WORK}/delayed.kivpat delayed)
string(REPLACE "pipe 50" "pipe 0" due "${delayed}")
file(WRITE ${WORK}/due.kivpat "${due}")
file(WRITE ${WORK}/silent.kivpat "{\"patcher\": {\"boxes\": [{\"box\": {\"kivclass\": \"newobj\", \"id\": \"a\",
    \"text\": \"loadbang\"}}, {\"box\": {\"kivclass\": \"newobj\", \"id\": \"b\", \"text\": \"delay 50\"}}],
    \"lines\": [{\"patchline\": {\"source\": [\"a\", 0], \"destination\": [\"b\", 0]}}]}}")
file(WRITE ${WORK}/lines "; in 1\n; in 2\n")
foreach(offline "" --offline)
    expect(0 "^late: 1\nlate: 2\n$" lines ${offline} --interactive --until-idle delayed.kivpat)
    expect(0 "^$" lines ${offline} --interactive --until-idle --send "; kiv quit" delayed.kivpat)
endforeach()
# In overdrive too what is due at once fires, and the end of the last clock is noticed.
foreach(overdrive "" --overdrive)
    expect(0 "^late: 1\nlate: 2\n$" empty --for 0 ${overdrive} --send "kiv setpollthrottle 1" --send "in 1"
        --send "in 2" due.kivpat)
    expect(0 "^$" empty --until-idle ${overdrive} silent.kivpat)
endforeach()
expect(0 "a: no such object" empty --offline --for 1 --send "kiv disablequeue 1" --send "a" delayed.kivpat)
expect(0 "pipe: int 3\nprint: int 3\nlate: 3\n$" empty --for 1 --offline --send "; kiv overdrive 1"
    --send "; kiv debugmessages 1" --send "; in 3" delayed.kivpat)
# A translation is read from the search path; one that wants other arguments is refused.
file(WRITE ${WORK}/wrong.kivpat "{\"patcher\": {\"boxes\": [
    {\"box\": {\"kivclass\": \"newobj\", \"text\": \"nonesuch\"}}, {\"box\": {\"kivclass\": \"nonesuch\"}}]}}")
file(MAKE_DIRECTORY ${WORK}/preferences)
file(WRITE ${WORK}/preferences/translation.kivpref "{\"current_translation\": \"de\", \"translations\": {\"de\":
    {\"No such object\": \"Kein solches Objekt\", \"%s: no such object\": \"%d: nichts\"}}}")
expect(0 "error: newobj: nonesuch: Kein solches Objekt\nerror: newobj: nonesuch: no such object\n$" empty
    --for 0 --path preferences wrong.kivpat)
expect(0 "want different arguments" empty --for 0 --path preferences wrong.kivpat)
expect(1 "not written" empty --for 0 --save no.kivpat nofile ${hello})
expect(1 "nofile" empty --for 0 --save yes.kivpat ${hello} nofile)
expect(0 "^print: Hello" empty --for 0 yes.kivpat)

# Names beyond ASCII, on the command line and in what is read and printed; either slash where both are.
file(COPY_FILE ${hello} "${WORK}/grüße ☃.kivpat")
file(MAKE_DIRECTORY "${WORK}/größe")
file(WRITE ${WORK}/lines "größe 1\n; kiv size\nnothing 2")
expect(0 "^print: Hello" empty --for 0 --path größe "./grüße ☃.kivpat")
expect(0 "error: größe: no such object" empty --for 0 --send "größe 1" ${hello})
expect(0 "größe: no such object.*static symbols.*nothing: no such object" lines --interactive ${hello})
expect(1 "opening nowhere/☃" empty nowhere/☃)
if(EMULATOR)
    string(REPLACE "/" "\\" backslashes "${WORK}/größe/../grüße ☃.kivpat")
    expect(0 "^print: Hello" empty --for 0 "${backslashes}")
    expect(0 "^print: Hello" empty --for 0 --path .\\größe ".\\grüße ☃.kivpat")
endif()

# A program that would run on ends well when it is interrupted.
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/interrupt ${WORK}/printed ${EMULATOR} ${KIV} ${hello}
    RESULT_VARIABLE result TIMEOUT 60)
if(NOT result STREQUAL 0)
    message("interrupted, kiv ended with ${result}")
    set(failed yes)
endif()

if(EXISTS ${WORK}/no.kivpat)
    message("a document that is not the first was saved")
    set(failed yes)
endif()
if(failed)
    message(FATAL_ERROR "the command line does not do what docs/host.md says")
endif()
