#pragma once

namespace kestrune {

/// Throws Failure with this text and the thread's last error, which is read before the text is
/// copied: taking memory may change it.
[[noreturn]] void ThrowLastError(const wchar_t* text);

}  // namespace kestrune
