#include "export/prepare/layer_selection_win32.h"

#include <gmock/gmock.h>

#include <limits>
#include <new>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/scarce_memory.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Sets up a job and a manifest. Each failure must leave the job as it was.
class OutJobFileTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    if (!IsSkipped()) {
      PutFile(job_, kJob);
      PutFile(manifest_, "PlotKey=PlotTopPlot\r\nLayerName=Bottom Layer\r\n");
    }
  }

  bool Select() {
    SystemCalls calls;
    return SelectOutJobLayers(calls, job_, manifest_, changes_, error_text_);
  }

  static constexpr char kJob[] =
      "\xEF[OutputGroup1]\r\n"
      "Configuration1_Item1=PlotTopPlot=False|Plot_V7_2=True|Plot_V7_2_name=Top|a\r\n\x1A";

  std::wstring job_ = Scratch(L"Bridge.OutJob");
  std::wstring manifest_ = Scratch(L"layers.txt");
  std::vector<PlotFieldChange> changes_ = {{"old", true}};
  std::wstring error_text_ = L"old";
};

TEST_F(OutJobFileTest, IsRewrittenWithoutTemporaryFile) {
  EXPECT_TRUE(Select());
  EXPECT_EQ(error_text_, L"");
  EXPECT_THAT(changes_, ElementsAre(PlotFieldChange{"PlotTopPlot", true},
                                    PlotFieldChange{"Plot_V7_2", false}));
  EXPECT_EQ(FileBytes(job_),
            "\xEF[OutputGroup1]\r\n"
            "Configuration1_Item1=PlotTopPlot=True|Plot_V7_2=False|Plot_V7_2_name=Top|a\r\n\x1A");
  EXPECT_THAT(NamesIn(Scratch(L"")), ElementsAre(L"Bridge.OutJob", L"layers.txt"));
}

/// Refuses the first renames, and notes every call with the names of its files.
class RefusedRenames final : public SystemCalls {
 public:
  explicit RefusedRenames(int refusals) : refusals_(refusals) {}

  BOOL Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags) override {
    calls.push_back(L"rename " + std::wstring(source.Name()) + L" " + std::wstring(target.Name()));
    return --refusals_ < 0 && SystemCalls::Move(source, target, flags);
  }
  BOOL Delete(const ExtendedPath& path) override {
    calls.push_back(L"delete " + std::wstring(path.Name()));
    return SystemCalls::Delete(path);
  }

  std::vector<std::wstring> calls;

 private:
  int refusals_;
};

TEST_F(OutJobFileTest, IsDeletedFirstIfReplacementFails) {
  RefusedRenames once(1);
  EXPECT_TRUE(SelectOutJobLayers(once, job_, manifest_, changes_, error_text_));
  EXPECT_THAT(once.calls,
              ElementsAre(L"rename Bridge.OutJob.tmp Bridge.OutJob", L"delete Bridge.OutJob",
                          L"rename Bridge.OutJob.tmp Bridge.OutJob"));
  EXPECT_NE(FileBytes(job_), kJob);
}

TEST_F(OutJobFileTest, SecondRefusalLeavesNoTemporaryFile) {
  RefusedRenames twice(2);
  EXPECT_FALSE(SelectOutJobLayers(twice, job_, manifest_, changes_, error_text_));
  EXPECT_EQ(error_text_, L"Cannot replace the temporary OutJob after layer selection.");
  EXPECT_THAT(twice.calls,
              ElementsAre(L"rename Bridge.OutJob.tmp Bridge.OutJob", L"delete Bridge.OutJob",
                          L"rename Bridge.OutJob.tmp Bridge.OutJob", L"delete Bridge.OutJob.tmp"));
  EXPECT_THAT(NamesIn(Scratch(L"")), ElementsAre(L"layers.txt"));
  EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(OutJobFileTest, IsWrittenAnewEvenWhenNothingChanges) {
  ASSERT_TRUE(Select());
  const std::string once = FileBytes(job_);
  const FILETIME past{0, 0x01D00000};
  ASSERT_TRUE(SetFileTime(HoldOpen(job_, GENERIC_WRITE, 0).Get(), nullptr, nullptr, &past));
  ASSERT_TRUE(Select());
  EXPECT_THAT(changes_, IsEmpty());
  EXPECT_EQ(FileBytes(job_), once);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  ASSERT_TRUE(GetFileAttributesExW(job_.c_str(), GetFileExInfoStandard, &data));
  EXPECT_GT(CompareFileTime(&data.ftLastWriteTime, &past), 0);
}

TEST_F(OutJobFileTest, TheManifestIsReadBeforeTheJob) {
  job_ = Scratch(L"missing.OutJob");
  EXPECT_FALSE(Select());
  EXPECT_EQ(error_text_, L"Cannot read the temporary OutJob: " + job_);
  EXPECT_THAT(changes_, IsEmpty());
  for (const std::wstring& unreadable : {Scratch(L"missing.txt"), Scratch(L"")}) {
    manifest_ = unreadable;
    EXPECT_FALSE(Select());
    EXPECT_EQ(error_text_, L"Cannot read the used-layer manifest: " + manifest_);
  }
}

TEST_F(OutJobFileTest, WithoutConfigurationIsLeftAlone) {
  PutFile(job_, "Configuration1_Item10=a");
  EXPECT_FALSE(Select());
  EXPECT_EQ(error_text_, L"The ODB configuration was not found in the temporary OutJob.");
  EXPECT_EQ(FileBytes(job_), "Configuration1_Item10=a");
}

TEST_F(OutJobFileTest, StaysWhenItsUpdateCannotBeWritten) {
  ASSERT_TRUE(CreateDirectoryW((job_ + L".tmp").c_str(), nullptr));
  EXPECT_FALSE(Select());
  EXPECT_EQ(error_text_, L"Cannot write the temporary OutJob update.");
  EXPECT_EQ(FileBytes(job_), kJob);
}

TEST_F(OutJobFileTest, StaysWhenAnotherProgramHoldsIt) {
  {
    const FileHandle held = HoldOpen(job_, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_FALSE(Select());
    EXPECT_EQ(error_text_, L"Cannot replace the temporary OutJob after layer selection.");
    EXPECT_THAT(changes_, IsEmpty());
  }
  EXPECT_EQ(FileBytes(job_), kJob);
  EXPECT_FALSE(Exists(job_ + L".tmp"));
}

TEST_F(OutJobFileTest, StaleTemporaryFileIsOverwritten) {
  PutFile(job_ + L".tmp", std::string(10'000, 'x'));
  EXPECT_TRUE(Select());
  EXPECT_LT(FileBytes(job_).size(), 1000U);
  EXPECT_FALSE(Exists(job_ + L".tmp"));
}

/// Selects layers with one refused allocation.
class SelectionInScarcity : public OutJobFileTest {
 protected:
  long SelectWith(long allowed) {
    const ScarceMemory memory(allowed, ScarceMemory::Refused::One);
    try {
      selected_ = Select();
    } catch (const std::bad_alloc&) {
      ++thrown_;
    }
    return ScarceMemory::Asked();
  }

  bool selected_ = false;
  int thrown_ = 0;
};

TEST_F(SelectionInScarcity, ARefusedAllocationIsThrown) {
  const long all = SelectWith(std::numeric_limits<long>::max());
  ASSERT_TRUE(selected_);
  for (long allowed = 0; allowed < all; ++allowed) {
    PutFile(job_, kJob);
    selected_ = true;
    SelectWith(allowed);
    EXPECT_TRUE(selected_) << "allocation " << allowed << ": " << Utf8FromWide(error_text_);
  }
  EXPECT_EQ(thrown_, all);
}

TEST_F(OutJobFileTest, JobAbove1GiBIsNotRead) {
  PutSparseFile(job_, (std::uint64_t{1} << 30) + 1, kJob);
  EXPECT_FALSE(Select());
  EXPECT_EQ(error_text_, L"Cannot read the temporary OutJob: " + job_);
}

}  // namespace
}  // namespace kestrune
