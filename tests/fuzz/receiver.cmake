# What strangers send.
ombrel_fuzz_target(message receiver_message)
ombrel_fuzz_target(batch receiver_message)
