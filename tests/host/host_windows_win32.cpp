#include "tests/host/host_windows_win32.h"

#include <commctrl.h>

namespace kestrune {
namespace {

constexpr wchar_t kMainClass[] = L"KestruneHostStandIn";
constexpr wchar_t kWaitClass[] = L"KestruneWaitWindow";
constexpr int kWaitWidth = 420;
constexpr int kWaitHeight = 168;

void Fill(HDC context, RECT area, COLORREF color) {
  const HBRUSH brush = CreateSolidBrush(color);
  FillRect(context, &area, brush);
  DeleteObject(brush);
}

/// A small board: copper, traces, pads and two parts, for something to look at.
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

HWND Child(HWND parent, const wchar_t* type, const std::wstring& text, DWORD style, RECT place) {
  const HWND child =
      CreateWindowExW(0, type, text.c_str(), WS_CHILD | WS_VISIBLE | style, place.left, place.top,
                      place.right - place.left, place.bottom - place.top, parent, nullptr,
                      GetModuleHandleW(nullptr), nullptr);
  SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT)), TRUE);
  return child;
}

}  // namespace

HostWindows::HostWindows(const std::wstring& board_name) {
  InitCommonControls();
  Register(kMainClass, &MainProcedure, nullptr);
  Register(kWaitClass, &DefWindowProcW, GetSysColorBrush(COLOR_BTNFACE));
  RECT area = {};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  main_ = CreateWindowExW(0, kMainClass, (L"Host stand-in - " + board_name).c_str(),
                          WS_OVERLAPPEDWINDOW | WS_VISIBLE, area.left + 40, area.top + 30,
                          area.right - area.left - 80, area.bottom - area.top - 60, nullptr,
                          nullptr, GetModuleHandleW(nullptr), nullptr);
  UpdateWindow(main_);

  constexpr DWORD kStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU;
  RECT frame{0, 0, kWaitWidth, kWaitHeight};
  AdjustWindowRect(&frame, kStyle, FALSE);
  // Deliberately off centre: where it belongs is what the program is asked for.
  wait_ =
      CreateWindowExW(WS_EX_TOPMOST, kWaitClass, L"Kestrune", kStyle | WS_VISIBLE, area.left + 60,
                      area.top + 70, frame.right - frame.left, frame.bottom - frame.top, main_,
                      nullptr, GetModuleHandleW(nullptr), nullptr);
  Child(wait_, L"STATIC", board_name, SS_LEFT | SS_NOPREFIX, {16, 14, 404, 29});
  step_ = Child(wait_, L"STATIC", L"", SS_LEFT | SS_NOPREFIX, {16, 36, 404, 51});
  bar_ = Child(wait_, PROGRESS_CLASSW, L"", 0, {16, 58, 404, 75});
  SendMessageW(bar_, PBM_SETRANGE, 0, MAKELPARAM(0, 6));
  Child(wait_, L"BUTTON", L"Cancel", BS_PUSHBUTTON | WS_TABSTOP, {324, 130, 404, 155});
  UpdateWindow(wait_);
}

HostWindows::~HostWindows() {
  DestroyWindow(wait_);
  DestroyWindow(main_);
}

void HostWindows::ShowStep(int number, const std::wstring& text) {
  const std::wstring line = L"Step " + std::to_wstring(number) + L" of 6: " + text;
  SendMessageW(step_, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(line.c_str()));
  SendMessageW(bar_, PBM_SETPOS, static_cast<WPARAM>(number), 0);
}

void HostWindows::HideWait() {
  ShowWindow(wait_, SW_HIDE);
  RedrawWindow(main_, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
}

}  // namespace kestrune
