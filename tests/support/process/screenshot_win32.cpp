#include "tests/support/process/screenshot_win32.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace kestrune {
namespace {

/// Holds a bitmap in memory that GDI draws into and whose pixels can be read.
class Canvas {
 public:
  Canvas(int width, int height) : width_(width), height_(height) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    context_ = CreateCompatibleDC(nullptr);
    bitmap_ = CreateDIBSection(context_, &info, DIB_RGB_COLORS, &bits_, nullptr, 0);
    before_ = SelectObject(context_, bitmap_);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas() {
    SelectObject(context_, before_);
    DeleteObject(bitmap_);
    DeleteDC(context_);
  }

  [[nodiscard]] HDC Context() const { return context_; }

  [[nodiscard]] Picture Pixels() const {
    GdiFlush();
    Picture picture{width_, height_, {}};
    picture.pixels.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
    if (bits_ != nullptr) {
      std::memcpy(picture.pixels.data(), bits_, picture.pixels.size() * 4);
    }
    for (std::uint32_t& pixel : picture.pixels) {
      pixel &= 0x00FFFFFF;
    }
    return picture;
  }

 private:
  int width_;
  int height_;
  HDC context_ = nullptr;
  HBITMAP bitmap_ = nullptr;
  HGDIOBJ before_ = nullptr;
  void* bits_ = nullptr;
};

bool Differ(std::uint32_t left, std::uint32_t right) {
  constexpr int kTolerance = 12;
  for (int shift = 0; shift < 24; shift += 8) {
    const int a = static_cast<int>((left >> shift) & 0xFF);
    const int b = static_cast<int>((right >> shift) & 0xFF);
    if (std::abs(a - b) > kTolerance) {
      return true;
    }
  }
  return false;
}

Picture DrawIconOn(std::uint32_t background, HICON icon, int width, int height) {
  const Canvas canvas(width, height);
  const HBRUSH brush =
      CreateSolidBrush(RGB((background >> 16) & 0xFF, (background >> 8) & 0xFF, background & 0xFF));
  const RECT all{0, 0, width, height};
  FillRect(canvas.Context(), &all, brush);
  DeleteObject(brush);
  DrawIconEx(canvas.Context(), 0, 0, icon, width, height, 0, nullptr, DI_NORMAL);
  return canvas.Pixels();
}

}  // namespace

Picture CaptureScreen(const RECT& area) {
  const int width = area.right - area.left;
  const int height = area.bottom - area.top;
  const Canvas canvas(width, height);
  const HDC screen = GetDC(nullptr);
  BitBlt(canvas.Context(), 0, 0, width, height, screen, area.left, area.top, SRCCOPY);
  ReleaseDC(nullptr, screen);
  return canvas.Pixels();
}

bool LooksLikeIcon(const Picture& picture, HICON icon) {
  if (picture.pixels.empty() || icon == nullptr) {
    return false;
  }
  const std::uint32_t background = picture.pixels.front();
  const Picture wanted = DrawIconOn(background, icon, picture.width, picture.height);
  std::size_t painted = 0;
  std::size_t different = 0;
  for (std::size_t i = 0; i < wanted.pixels.size(); ++i) {
    painted += wanted.pixels[i] != background ? 1U : 0U;
    different += Differ(wanted.pixels[i], picture.pixels[i]) ? 1U : 0U;
  }
  return painted * 4 > wanted.pixels.size() && different * 50 < wanted.pixels.size();
}

}  // namespace kestrune
