#pragma once

#include <string_view>

namespace kestrune {

// Names every folder and file of the product.

/// The product's folder, below local application data and below Public Documents.
inline constexpr std::wstring_view kProductFolder = L"Kestrune";

/// Below `<local application data>\Kestrune`.
inline constexpr std::wstring_view kRuntimeFolder = L"Runtime";
inline constexpr std::wstring_view kLogFolder = L"Logs";
inline constexpr std::wstring_view kLogFile = L"bridge.log";
inline constexpr std::wstring_view kDefaultExportFolder = L"ODBpp";
inline constexpr std::wstring_view kSettingsFile = L"settings.ini";
inline constexpr std::wstring_view kRegistrationSettingsFile = L"registration.ini";

/// In the runtime folder; the files of the package have the same names.
inline constexpr std::wstring_view kProgramFile = L"Kestrune.exe";
inline constexpr std::wstring_view kScriptProjectFile = L"Kestrune.PrjScr";
inline constexpr std::wstring_view kScriptFile = L"Kestrune.pas";
inline constexpr std::wstring_view kWaitFormUnitFile = L"Kestrune_WaitForm.pas";
inline constexpr std::wstring_view kWaitFormFile = L"Kestrune_WaitForm.dfm";
inline constexpr std::wstring_view kLegacyImageFile = L"odbpp-toolbar-legacy.bmp";
inline constexpr std::wstring_view kActiveBarImageFile = L"odbpp-toolbar-activebar.png";
inline constexpr std::wstring_view kFlatImageFile = L"odbpp-toolbar-ad26-16.png";

/// Below `<Public Documents>\Kestrune`: the temporary project, and the path of the host's archive
/// below it.
inline constexpr std::wstring_view kTemporaryFolder = L"Temp";
inline constexpr std::wstring_view kBridgeBoard = L"Bridge.PcbDoc";
inline constexpr std::wstring_view kBridgeOutJob = L"Bridge.OutJob";
inline constexpr std::wstring_view kBridgeProject = L"Bridge.PrjPcb";
/// Written last; its presence signals to the script that the project is complete.
inline constexpr std::wstring_view kReadyFile = L"ready.txt";
inline constexpr std::wstring_view kNativeOutputFolder = L"Project Outputs for Bridge";
inline constexpr std::wstring_view kNativeArchiveFolder = L"ODB";
inline constexpr std::wstring_view kNativeArchiveFile = L"Bridge.zip";

/// Folders of the package, which is unpacked beside the program.
inline constexpr std::wstring_view kPackageScriptFolder = L"Script";
inline constexpr std::wstring_view kPackageRuntimeFolder = L"Runtime";
inline constexpr std::wstring_view kPackageAssetsFolder = L"Assets";

}  // namespace kestrune
