// What the scheduler needs from the operating system. The portable sources of the
// threading subsystem call only these; posix/platform.cpp gives them.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace quillon2::internal {

// The processor's spin-wait hint.
void cpu_relax() noexcept;
// Sleeps while `word` holds `expected`; may return early for no reason.
void wait_on_word(std::atomic<int>& word, int expected) noexcept;
// Wakes one thread sleeping in wait_on_word on `word`.
void wake_one_on_word(std::atomic<int>& word) noexcept;
// A number that tells the calling thread from every other thread alive; never zero.
std::uintptr_t current_thread_key() noexcept;
// Gives up the rest of the time slice.
void yield_thread() noexcept;
// Sleeps; not an interruption point.
void sleep_microseconds(unsigned microseconds) noexcept;
// Lets the calling thread's timed waits end at their deadline instead of up to the
// system's default slack (50 microseconds on Linux) after it.
void use_exact_timeouts() noexcept;
// Shows `name` for the calling thread in the system's thread listing, as far as the
// system allows (on Linux the first 15 bytes).
void publish_thread_name(char const* name) noexcept;
// Whether a debugger traces the process. The answer may be up to a tenth of a second
// old: finding out costs a read of the process's status, which is not made on every
// call.
bool debugger_attached() noexcept;
// The readable form of a mangled type name; the mangled text when it cannot be read.
std::string demangle_type_name(char const* mangled);
// Nanoseconds since the library was loaded on the steady clock: the process clock of the
// timers. 64 bits, so that it does not wrap in the life of a process.
std::int64_t process_clock_nanoseconds() noexcept;

}  // namespace quillon2::internal
