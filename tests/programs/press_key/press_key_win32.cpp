// press_key.exe TITLE BUTTON [KEY]: waits until a visible window with this title takes input and
// has a button with this label, without its &, that can be pressed. A title that ends with * is the
// beginning of one. With a KEY (Return, Escape, or alt+ and a letter) it then gives that window the
// keyboard, presses the key, and waits until that button of that window can no longer be pressed.
//
// Exit codes: 0 done, 1 no such window or no effect of the key within the time, 2 wrong arguments.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;
constexpr DWORD kLimit = 60'000;
constexpr DWORD kPause = 20;
/// After this time without an effect the key is pressed again.
constexpr DWORD kKeyLimit = 20'000;

struct Search {
  std::wstring_view title;
  std::wstring_view label;
  HWND window = nullptr;
  HWND button = nullptr;
};

std::wstring TextOf(HWND window) {
  std::array<wchar_t, 512> text = {};
  DWORD_PTR length = 0;
  if (SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                          SMTO_ABORTIFHUNG, 2000, &length) == 0) {
    return {};
  }
  return {text.data(), std::min<std::size_t>(length, text.size() - 1)};
}

bool HasTitle(HWND window, std::wstring_view title) {
  const std::wstring found = TextOf(window);
  return title.ends_with(L'*') ? found.starts_with(title.substr(0, title.size() - 1))
                               : found == title;
}

bool TakesInput(HWND window) {
  return IsWindowVisible(window) != 0 && IsWindowEnabled(window) != 0;
}

/// Returns whether this is a button with the label that can be pressed.
bool CanBePressed(HWND button, std::wstring_view label) {
  std::array<wchar_t, 16> name = {};
  GetClassNameW(button, name.data(), static_cast<int>(name.size()));
  if (lstrcmpiW(name.data(), L"Button") != 0 || !TakesInput(button)) {
    return false;
  }
  std::wstring found = TextOf(button);
  std::erase(found, L'&');
  return found == label;
}

BOOL CALLBACK LookAtButton(HWND button, LPARAM parameter) {
  auto& search = *reinterpret_cast<Search*>(parameter);
  if (!CanBePressed(button, search.label)) {
    return TRUE;
  }
  search.button = button;
  return FALSE;
}

BOOL CALLBACK LookAtWindow(HWND window, LPARAM parameter) {
  auto& search = *reinterpret_cast<Search*>(parameter);
  if (TakesInput(window) && HasTitle(window, search.title)) {
    EnumChildWindows(window, &LookAtButton, parameter);
    search.window = window;
  }
  return search.button == nullptr ? TRUE : FALSE;
}

/// Waits until the condition holds; false when the time is up before.
template <typename Condition>
bool WaitUntil(Condition condition, DWORD limit) {
  const ULONGLONG end = GetTickCount64() + limit;
  while (!condition()) {
    if (GetTickCount64() >= end) {
      return false;
    }
    Sleep(kPause);
  }
  return true;
}

bool Find(Search& search) {
  return WaitUntil(
      [&] {
        EnumWindows(&LookAtWindow, reinterpret_cast<LPARAM>(&search));
        return search.button != nullptr;
      },
      kLimit);
}

/// Returns whether what is typed reaches the window or one of its controls.
bool HasKeyboard(HWND window) {
  GUITHREADINFO thread = {};
  thread.cbSize = sizeof thread;
  return GetForegroundWindow() == window &&
         GetGUIThreadInfo(GetWindowThreadProcessId(window, nullptr), &thread) != 0 &&
         thread.hwndFocus != nullptr && GetAncestor(thread.hwndFocus, GA_ROOT) == window;
}

bool GiveKeyboard(HWND window) {
  return WaitUntil(
      [&] {
        SetForegroundWindow(window);
        return HasKeyboard(window);
      },
      kLimit);
}

/// Returns the codes of the keys that are held down at the same time; none for an unknown name.
std::vector<WORD> CodesOf(std::wstring_view key) {
  constexpr std::wstring_view kAlt = L"alt+";
  if (key == L"Return") {
    return {VK_RETURN};
  }
  if (key == L"Escape") {
    return {VK_ESCAPE};
  }
  if (key.starts_with(kAlt) && key.size() == kAlt.size() + 1) {
    const wchar_t letter = key.back();
    return {VK_MENU, static_cast<WORD>(letter - L'a' + L'A')};
  }
  return {};
}

void Press(const std::vector<WORD>& codes) {
  std::vector<INPUT> inputs;
  for (const WORD code : codes) {
    INPUT input = {};
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = code;
    input.ki.wScan = static_cast<WORD>(MapVirtualKeyW(code, MAPVK_VK_TO_VSC));
    inputs.push_back(input);
  }
  for (std::size_t i = codes.size(); i > 0; --i) {
    inputs.push_back(inputs[i - 1]);
    inputs.back().ki.dwFlags = KEYEVENTF_KEYUP;
  }
  SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
}

int PressUntilItHasAnEffect(const Search& search, const std::vector<WORD>& codes) {
  const auto has_effect = [&] {
    return !TakesInput(search.window) || !CanBePressed(search.button, search.label);
  };
  for (DWORD waited = 0; waited < kLimit; waited += kKeyLimit) {
    if (!GiveKeyboard(search.window)) {
      return kFailed;
    }
    Press(codes);
    if (WaitUntil(has_effect, kKeyLimit)) {
      return kDone;
    }
  }
  return kFailed;
}

int Run() {
  int count = 0;
  const LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  if (count != 3 && count != 4) {
    return kWrongArguments;
  }
  const std::vector<WORD> codes = count == 4 ? CodesOf(arguments.Get()[3]) : std::vector<WORD>();
  if (count == 4 && codes.empty()) {
    return kWrongArguments;
  }
  Search search{arguments.Get()[1], arguments.Get()[2]};
  if (!Find(search)) {
    return kFailed;
  }
  return codes.empty() ? kDone : PressUntilItHasAnEffect(search, codes);
}

}  // namespace
}  // namespace kestrune

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  return kestrune::Run();
}
