#pragma once

#include <string>

namespace kestrune {

/// Throws Failure with this text and the thread's last error, which is read before the text is
/// copied, since allocating memory may change it.
[[noreturn]] void ThrowLastError(const wchar_t* text);
/// Throws the same Failure with `subject`, the path or name that the step was applied to.
[[noreturn]] void ThrowLastError(const wchar_t* text, const std::wstring& subject);

}  // namespace kestrune
