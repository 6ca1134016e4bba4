# zqmonitor.exe: the host on the system's Core Audio, built from the host's portable files (its
# session, message loop, readings, summary) and a main of its own. The live terminal view and
# the virtual machine's options are Linux-only.
add_executable(zqmonitor
  windows/main.cpp windows/message_loop.cpp options.cpp host_session.cpp readings.cpp report.cpp json_writer.cpp
  text.cpp batch_loop.cpp)
target_link_libraries(zqmonitor PRIVATE zqCoreAudio zqplatform)
zq_warnings(zqmonitor)
# The product table beside the executable, where the library looks for it.
configure_file(config.xml ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/config.xml COPYONLY)
