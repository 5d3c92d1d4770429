# What strangers send.
ombrel_fuzz_target(message receiver_message)
ombrel_fuzz_target(batch receiver_message)
ombrel_fuzz_target(event_line linux_event_log ombrel_notices)
