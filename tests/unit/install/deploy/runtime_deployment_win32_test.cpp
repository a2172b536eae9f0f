#include "install/deploy/runtime_deployment_win32.h"

#include <gtest/gtest.h>

#include <optional>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/text/path.h"
#include "common/files/sha256_win32.h"
#include "common/text/text.h"
#include "install/deploy/refusal.h"
#include "install/deploy/runtime_script_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/remove_tree_win32.h"
#include "tests/support/machine/shell_folder_override_win32.h"
#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

class RuntimeDeployment : public InstallTest {
 protected:
  void SetUp() override {
    InstallTest::SetUp();
    program_ = Scratch(L"program\\Kestrune.exe");
    PutFile(program_, "program");
    SetTimeOf(program_, kPackageTime);
  }

  bool Deploy() {
    SystemCalls calls;
    return Note(DeployRuntime(calls, package_, program_));
  }
  bool Note(const std::optional<Failure>& refusal) {
    message_ = refusal ? refusal->text + refusal->subject : L"";
    code_ = refusal ? refusal->code : ERROR_SUCCESS;
    return !refusal;
  }

  std::wstring program_;
  std::wstring message_;
  DWORD code_ = ERROR_SUCCESS;
};

TEST_F(RuntimeDeployment, ASecondOneTouchesNothing) {
  ASSERT_TRUE(Deploy());
  const Snapshot before = TakeSnapshot();
  ASSERT_TRUE(Deploy());
  EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
}

TEST_F(RuntimeDeployment, MissingFileStopsThereAndIsNamed) {
  const std::wstring files[] = {
      L"Script\\Kestrune.PrjScr",          L"Script\\Kestrune_WaitForm.pas",
      L"Script\\Kestrune_WaitForm.dfm",    L"Runtime\\Bridge.OutJob",
      L"Assets\\odbpp-toolbar-legacy.bmp", L"Assets\\odbpp-toolbar-activebar.png",
      L"Assets\\odbpp-toolbar-ad26-16.png"};
  std::size_t installed_before = 1;
  for (const std::wstring& file : files) {
    ASSERT_TRUE(RemoveTree(folders_.runtime));
    MakePackage(package_, kPackageTime, "");
    ASSERT_TRUE(DeleteFileW(JoinPath(package_, file).c_str()));
    const std::wstring text = L"Missing file of the package: " + JoinPath(package_, file);
    EXPECT_FALSE(Deploy());
    EXPECT_EQ(message_, text);
    EXPECT_EQ(NamesIn(folders_.runtime).size(), installed_before++);
    // A folder in its place is no file either.
    ASSERT_TRUE(TryCreateDirectories(JoinPath(package_, file)));
    EXPECT_FALSE(Deploy());
    EXPECT_EQ(message_, text);
    ASSERT_TRUE(RemoveTree(JoinPath(package_, file)));
  }
  program_ = Scratch(L"program\\missing.exe");
  EXPECT_FALSE(Deploy());
  EXPECT_EQ(message_, L"Missing file of the package: " + program_);
}

TEST_F(RuntimeDeployment, AMissingTemplateComesLast) {
  const std::wstring script = JoinPath(package_, L"Script\\Kestrune.pas");
  ASSERT_TRUE(DeleteFileW(script.c_str()));
  EXPECT_FALSE(Deploy());
  EXPECT_EQ(message_, L"Cannot establish source last-write time: " + script);
  EXPECT_EQ(NamesIn(folders_.runtime).size(), 8U);
}

TEST_F(RuntimeDeployment, FileAsRuntimeDirectoryFails) {
  PutFile(folders_.runtime, "x");
  EXPECT_FALSE(Deploy());
  EXPECT_EQ(message_, L"Cannot create the Bridge runtime directory.");
  EXPECT_NE(code_, DWORD{ERROR_SUCCESS});
}

TEST_F(RuntimeDeployment, ThePackagesManifestsDateAllFiles) {
  const std::wstring names[] = {L"Kestrune.PrjScr", L"Kestrune_WaitForm.pas",
                                L"Kestrune_WaitForm.dfm", L"Kestrune.pas"};
  std::string manifest = "[Files]\r\n";
  for (const std::wstring& name : names) {
    const ExtendedPath path(JoinPath({package_, L"Script", name}));
    manifest +=
        Utf8FromWide(name) + "=01DD0000:00000000|" + Sha256OfFile(RealCalls(), path) + "\r\n";
  }
  PutFile(JoinPath(package_, L"Script\\BFM_Script.ini"), manifest);
  ASSERT_TRUE(Deploy());
  for (const std::wstring& name : names) {
    EXPECT_EQ(TimeOf(Runtime(name)), 0x01DD'0000'0000'0000ULL);
  }
  EXPECT_EQ(TimeOf(Runtime(L"Bridge.OutJob")), kPackageTime);
  EXPECT_EQ(NamesIn(folders_.runtime).size(), 9U);
}

class RuntimeScript : public RuntimeDeployment {
 protected:
  void SetUp() override {
    RuntimeDeployment::SetUp();
    ASSERT_TRUE(TryCreateDirectories(folders_.runtime));
  }

  bool Generate() { return GenerateIn(folders_.runtime); }
  bool GenerateIn(const std::wstring& runtime) {
    try {
      SystemCalls calls;
      GenerateRuntimeScript(calls, package_, runtime);
      return Note(std::nullopt);
    } catch (const Refusal& refusal) {
      return Note(refusal);
    }
  }
};

TEST_F(RuntimeScript, IsFilledDatedAndLeavesNoLeftovers) {
  ASSERT_TRUE(Generate());
  EXPECT_EQ(NamesIn(folders_.runtime), std::vector<std::wstring>{L"Kestrune.pas"});
  EXPECT_EQ(TimeOf(Runtime(L"Kestrune.pas")), kPackageTime);
  // The next one finds it as new as the template, regardless of its content.
  PutFile(Runtime(L"Kestrune.pas"), "mine");
  SetTimeOf(Runtime(L"Kestrune.pas"), kPackageTime);
  ASSERT_TRUE(Generate());
  EXPECT_EQ(FileBytes(Runtime(L"Kestrune.pas")), "mine");
}

TEST_F(RuntimeScript, LockedScriptIsNamedWithoutLeftovers) {
  PutFile(Runtime(L"Kestrune.pas"), "old");
  SetTimeOf(Runtime(L"Kestrune.pas"), kPackageTime - 1);
  const FileHandle reader = HoldOpen(Runtime(L"Kestrune.pas"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_FALSE(Generate());
  EXPECT_EQ(message_, L"Cannot lock target: " + Runtime(L"Kestrune.pas"));
  EXPECT_EQ(code_, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_EQ(NamesIn(folders_.runtime), std::vector<std::wstring>{L"Kestrune.pas"});
}

TEST_F(RuntimeScript, UndeletableTemporaryFileIsThrown) {
  ScriptedCalls calls;
  calls.before = [](const SystemCall& call) {
    return call.name == "Delete" && call.path.ends_with(L".incoming")
               ? std::optional<DWORD>(ERROR_SHARING_VIOLATION)
               : std::nullopt;
  };
  try {
    GenerateRuntimeScript(calls, package_, folders_.runtime);
    FAIL() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, L"remove");
    EXPECT_EQ(failure.code, DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(failure.subject.ends_with(L".incoming"));
  }
  // The script itself had been installed.
  EXPECT_EQ(TimeOf(Runtime(L"Kestrune.pas")), kPackageTime);
}

TEST_F(RuntimeScript, AMissingRuntimeDirectoryCannotBeWritten) {
  ASSERT_TRUE(RemoveTree(folders_.runtime));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(message_, L"Cannot write the runtime script.");
}

TEST_F(RuntimeScript, IncompleteTemporaryFileIsKept) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  EXPECT_FALSE(GenerateIn(disk.Folder()));
  EXPECT_EQ(message_, L"Cannot write the runtime script.");
  EXPECT_EQ(code_, DWORD{ERROR_DISK_FULL});
  const std::vector<std::wstring> left = NamesIn(disk.Folder());
  ASSERT_EQ(left.size(), 1U);
  EXPECT_TRUE(left[0].starts_with(L"script-") && left[0].ends_with(L".incoming"));
}

TEST_F(RuntimeScript, TemplateThatCannotBeReadIsNamed) {
  const std::wstring script = JoinPath(package_, L"Script\\Kestrune.pas");
  const std::wstring text = L"Cannot read the runtime script template.";
  {
    const FileHandle held = HoldOpen(script, GENERIC_READ, 0);
    EXPECT_FALSE(Generate());
    EXPECT_EQ(message_, text);
  }
  constexpr std::size_t kLargest = 16U << 20U;
  PutFile(script, std::string(kLargest + 1, 'x'));
  EXPECT_FALSE(Generate());
  EXPECT_EQ(message_, text);
  EXPECT_EQ(NamesIn(folders_.runtime), std::vector<std::wstring>{});
  PutFile(script, std::string(kLargest, 'x'));
  EXPECT_TRUE(Generate());
}

TEST_F(RuntimeScript, DirectoriesOutsideTheCodePageAreRefused) {
  const std::wstring text =
      L"The path of the runtime or temporary directory has characters outside the ANSI code page.";
  const std::wstring odd = Scratch(L"\x540D");
  ASSERT_TRUE(TryCreateDirectories(odd));
  EXPECT_FALSE(GenerateIn(odd));
  EXPECT_EQ(message_, text);
  const ShellFolderOverride moved(HKEY_LOCAL_MACHINE, L"Common Documents", odd);
  std::wstring root;
  ASSERT_TRUE(TemporaryRoot(RealCalls(), root, message_));
  if (!root.starts_with(odd)) {
    GTEST_SKIP() << "this system does not move the public documents at once";
  }
  EXPECT_FALSE(Generate());
  EXPECT_EQ(message_, text);
  EXPECT_EQ(NamesIn(folders_.runtime), std::vector<std::wstring>{});
}

TEST_F(RuntimeScript, IsUpdatedForUserNamedLikeProduct) {
  const std::wstring runtime = Scratch(L"kestrunes\\AppData\\Local\\Kestrune\\Runtime");
  ASSERT_TRUE(TryCreateDirectories(runtime));
  ASSERT_TRUE(GenerateIn(runtime));
  MakePackage(package_, kLaterTime, "two");
  EXPECT_TRUE(GenerateIn(runtime));
  EXPECT_EQ(message_, L"");
  EXPECT_TRUE(FileBytes(JoinPath(runtime, L"Kestrune.pas")).ends_with("two"));
}

TEST_F(RuntimeScript, TemplateWithoutProofFillsGapOnly) {
  package_ = Scratch(L"kestrunes\\package");
  MakePackage(package_, kPackageTime, "one");
  ASSERT_TRUE(Generate());
  MakePackage(package_, kLaterTime, "two");
  EXPECT_FALSE(Generate());
  EXPECT_EQ(message_, L"Original bundled timestamp metadata unavailable; target preserved: " +
                          Runtime(L"Kestrune.pas"));
}

TEST_F(RuntimeScript, RuntimeManifestDoesNotProveTheScript) {
  PutFile(Runtime(L"BFM_x.ini"), "[Files]\r\n");
  EXPECT_FALSE(Generate());
  EXPECT_NE(message_.find(L"Cannot establish source last-write time: "), std::wstring::npos);
  EXPECT_FALSE(Exists(Runtime(L"Kestrune.pas")));
}

}  // namespace
}  // namespace kestrune
