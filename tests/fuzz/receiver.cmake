# What strangers send.
ombrel_fuzz_target(message receiver_message)
ombrel_fuzz_target(batch receiver_message)
ombrel_fuzz_target(event_line ombrel_notices)
target_link_libraries(fuzz_event_line PRIVATE linux_event_log)
