# One program for each kind of client header. What they need comes with the target marvo::marvo.
add_executable(consumer ../consumer/consumer.cpp)
add_executable(c_consumer ../consumer/c_consumer.c)
set_target_properties(c_consumer PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
add_executable(wrapper_consumer ../consumer/wrapper_consumer.cpp)
set_target_properties(wrapper_consumer PROPERTIES CXX_STANDARD 17)
foreach(program consumer c_consumer wrapper_consumer)
    target_link_libraries(${program} PRIVATE marvo::marvo)
endforeach()
