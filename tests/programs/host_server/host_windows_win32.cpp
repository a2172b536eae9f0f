#include "tests/programs/host_server/host_windows_win32.h"

#include <commctrl.h>

namespace kestrune {
namespace {

constexpr wchar_t kMainClass[] = L"KestruneHostStandIn";
constexpr wchar_t kFormClass[] = L"KestruneWaitWindow";
constexpr DWORD kFormStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU;

void Fill(HDC context, RECT area, COLORREF color) {
  const HBRUSH brush = CreateSolidBrush(color);
  FillRect(context, &area, brush);
  DeleteObject(brush);
}

/// Draws a small board for the screenshots: copper, traces, pads and two parts.
void PaintBoard(HDC context, const RECT& client) {
  Fill(context, client, RGB(38, 40, 46));
  const int left = client.right / 2 - 260;
  const int top = client.bottom / 2 - 170;
  Fill(context, {left, top, left + 520, top + 340}, RGB(14, 74, 52));
  const HPEN trace = CreatePen(PS_SOLID, 4, RGB(200, 120, 50));
  const HGDIOBJ before = SelectObject(context, trace);
  for (int i = 0; i < 7; ++i) {
    MoveToEx(context, left + 60, top + 60 + 32 * i, nullptr);
    LineTo(context, left + 160, top + 60 + 32 * i);
    LineTo(context, left + 220 + 10 * i, top + 100 + 22 * i);
    LineTo(context, left + 430, top + 100 + 22 * i);
  }
  SelectObject(context, before);
  DeleteObject(trace);
  for (int i = 0; i < 7; ++i) {
    Fill(context, {left + 46, top + 52 + 32 * i, left + 66, top + 68 + 32 * i}, RGB(225, 190, 90));
    Fill(context, {left + 424, top + 93 + 22 * i, left + 440, top + 107 + 22 * i},
         RGB(225, 190, 90));
  }
  Fill(context, {left + 440, top + 84, left + 490, top + 248}, RGB(24, 24, 26));
}

LRESULT CALLBACK MainProcedure(HWND window, UINT message, WPARAM w, LPARAM l) {
  if (message == WM_PAINT) {
    PAINTSTRUCT paint = {};
    RECT client = {};
    GetClientRect(window, &client);
    PaintBoard(BeginPaint(window, &paint), client);
    EndPaint(window, &paint);
    return 0;
  }
  return DefWindowProcW(window, message, w, l);
}

void Register(const wchar_t* name, WNDPROC procedure, HBRUSH background) {
  WNDCLASSW type = {};
  type.lpfnWndProc = procedure;
  type.hInstance = GetModuleHandleW(nullptr);
  type.lpszClassName = name;
  type.hbrBackground = background;
  type.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  RegisterClassW(&type);
}

/// Returns the style of a control that shows its text as it is.
DWORD StyleOf(const std::wstring& type) {
  return type == L"STATIC" ? SS_LEFT | SS_NOPREFIX : type == L"BUTTON" ? WS_TABSTOP : 0;
}

HFONT BoldFont() {
  LOGFONTW font = {};
  GetObjectW(GetStockObject(DEFAULT_GUI_FONT), sizeof(font), &font);
  font.lfWeight = FW_BOLD;
  return CreateFontIndirectW(&font);
}

}  // namespace

HostWindows::HostWindows(const std::wstring& title) : bold_(BoldFont()) {
  InitCommonControls();
  Register(kMainClass, &MainProcedure, nullptr);
  Register(kFormClass, &DefWindowProcW, GetSysColorBrush(COLOR_BTNFACE));
  RECT area = {};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  main_ = CreateWindowExW(0, kMainClass, title.c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                          area.left + 40, area.top + 30, area.right - area.left - 80,
                          area.bottom - area.top - 60, nullptr, nullptr, GetModuleHandleW(nullptr),
                          nullptr);
  UpdateWindow(main_);
}

HostWindows::~HostWindows() {
  DestroyWindow(form_);
  DestroyWindow(main_);
  DeleteObject(bold_);
}

void HostWindows::MakeForm(const std::wstring& caption, int width, int height) {
  RECT frame{0, 0, width, height};
  AdjustWindowRect(&frame, kFormStyle, FALSE);
  RECT area = {};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  // A host may put the form anywhere; moving it to the centre is the program's work.
  form_ = CreateWindowExW(0, kFormClass, caption.c_str(), kFormStyle, area.left + 60, area.top + 70,
                          frame.right - frame.left, frame.bottom - frame.top, main_, nullptr,
                          GetModuleHandleW(nullptr), nullptr);
}

void HostWindows::AddControl(const std::wstring& name, const std::wstring& type, RECT place,
                             bool bold, const std::wstring& text) {
  const HWND control =
      CreateWindowExW(0, type.c_str(), text.c_str(), WS_CHILD | WS_VISIBLE | StyleOf(type),
                      place.left, place.top, place.right - place.left, place.bottom - place.top,
                      form_, nullptr, GetModuleHandleW(nullptr), nullptr);
  const HGDIOBJ font = bold ? bold_ : GetStockObject(DEFAULT_GUI_FONT);
  SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
  controls_[name] = control;
}

HWND HostWindows::Control(const std::wstring& name) const {
  const auto found = controls_.find(name);
  return found == controls_.end() ? nullptr : found->second;
}

void HostWindows::SetText(const std::wstring& name, const std::wstring& text) {
  SetWindowTextW(Control(name), text.c_str());
}

void HostWindows::SetBar(const std::wstring& name, int max, int position) {
  SendMessageW(Control(name), PBM_SETRANGE, 0, MAKELPARAM(0, max));
  SendMessageW(Control(name), PBM_SETPOS, static_cast<WPARAM>(position), 0);
}

void HostWindows::Enable(const std::wstring& name, bool enabled) {
  EnableWindow(Control(name), enabled ? TRUE : FALSE);
}

void HostWindows::ShowForm(bool shown) {
  ShowWindow(form_, shown ? SW_SHOW : SW_HIDE);
  UpdateWindow(form_);
}

}  // namespace kestrune
