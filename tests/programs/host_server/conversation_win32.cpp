#include "tests/programs/host_server/conversation_win32.h"

#include <array>
#include <utility>

#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

std::wstring Plain(std::wstring_view field) {
  std::wstring text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == L'\\' && i + 1 < field.size()) {
      ++i;
      text += field[i] == L'n' ? L'\n' : field[i];
    } else {
      text += field[i];
    }
  }
  return text;
}

std::wstring Escaped(std::wstring_view text) {
  std::wstring field;
  for (const wchar_t letter : text) {
    field += letter == L'\n' ? L"\\n" : letter == L'\\' ? L"\\\\" : std::wstring(1, letter);
  }
  return field;
}

}  // namespace

Conversation::Conversation() : event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  const KernelHandle reader(CreateThread(nullptr, 0, &ReadAll, this, 0, nullptr));
}

DWORD WINAPI Conversation::ReadAll(void* self) {
  static_cast<Conversation*>(self)->Read();
  return 0;
}

void Conversation::Read() {
  std::string line;
  std::array<char, 4096> bytes{};
  DWORD count = 0;
  while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), bytes.data(), bytes.size(), &count, nullptr) &&
         count > 0) {
    for (DWORD i = 0; i < count; ++i) {
      if (bytes.at(i) == '\n') {
        Add(std::exchange(line, {}));
      } else {
        line += bytes.at(i);
      }
    }
  }
  const std::scoped_lock<std::mutex> lock(mutex_);
  ended_ = true;
  SetEvent(event_.Get());
}

void Conversation::Add(const std::string& line) {
  const std::wstring text = WideFromUtf8(line);
  Fields fields;
  std::size_t begin = 0;
  for (std::size_t tab = 0; tab != std::wstring::npos; begin = tab + 1) {
    tab = text.find(L'\t', begin);
    fields.push_back(Plain(text.substr(begin, tab == std::wstring::npos ? tab : tab - begin)));
  }
  const std::scoped_lock<std::mutex> lock(mutex_);
  lines_.push_back(fields);
  SetEvent(event_.Get());
}

std::vector<Fields> Conversation::Take() {
  const std::scoped_lock<std::mutex> lock(mutex_);
  if (!ended_) {
    ResetEvent(event_.Get());
  }
  return std::exchange(lines_, {});
}

bool Conversation::Ended() {
  const std::scoped_lock<std::mutex> lock(mutex_);
  return ended_ && lines_.empty();
}

void Conversation::Say(const Fields& fields) {
  std::wstring line;
  for (const std::wstring& field : fields) {
    line += (line.empty() ? L"" : L"\t") + Escaped(field);
  }
  static_cast<void>(TryWriteAll(GetStdHandle(STD_OUTPUT_HANDLE), Utf8FromWide(line) + "\n"));
}

}  // namespace kestrune
