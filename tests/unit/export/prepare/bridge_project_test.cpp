#include "export/prepare/bridge_project.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(BridgeProject, HeadNamesTheBoardAsFirstDocument) {
  EXPECT_EQ(BridgeProjectHead(),
            L"[Design]\nVersion=1.0\nHierarchyMode=0\n\n"
            L"[Document1]\nDocumentPath=Bridge.PcbDoc\nAnnotationEnabled=1\n"
            L"DocumentUniqueId=BRDGPCB1\n\n");
}

TEST(BridgeProject, DependencySectionHasItsNumber) {
  EXPECT_EQ(DependencySection(2, L"Panel \u00E4.PcbDoc"),
            L"[Document2]\nDocumentPath=Panel \u00E4.PcbDoc\nAnnotationEnabled=1\n"
            L"DocumentUniqueId=BRDGDEP2\n\n");
  EXPECT_EQ(DependencySection(1234, L"x"),
            L"[Document1234]\nDocumentPath=x\nAnnotationEnabled=1\n"
            L"DocumentUniqueId=BRDGDEP1234\n\n");
}

TEST(BridgeProject, OutJobComesSecondWithoutDependencies) {
  EXPECT_EQ(OutJobSection(kFirstDependency),
            L"[Document2]\nDocumentPath=Bridge.OutJob\nAnnotationEnabled=0\n"
            L"DocumentUniqueId=BRDGOUT1\n");
}

TEST(BridgeFileNames, ANameCanBeTakenOnce) {
  BridgeFileNames names;
  EXPECT_TRUE(names.Take(L"Board.PcbDoc"));
  EXPECT_FALSE(names.Take(L"board.pcbdoc"));
  EXPECT_TRUE(names.Take(L"Board2.PcbDoc"));
  EXPECT_TRUE(names.Take(L"\u00C4.PcbDoc"));
  EXPECT_FALSE(names.Take(L"\u00E4.PcbDoc"));
}

TEST(BridgeFileNames, FilesOfProjectAreTakenFromStart) {
  BridgeFileNames names;
  EXPECT_FALSE(names.Take(L"bridge.pcbdoc"));
  EXPECT_FALSE(names.Take(L"BRIDGE.OUTJOB"));
  EXPECT_FALSE(names.Take(L"Bridge.PrjPcb"));
  EXPECT_FALSE(names.Take(L"READY.txt"));
  EXPECT_TRUE(names.Take(L"Bridge.SchDoc"));
}

TEST(BridgeFileNames, StreamHasNameOfItsFile) {
  BridgeFileNames names;
  EXPECT_FALSE(names.Take(L"ready.txt::$DATA"));
  EXPECT_FALSE(names.Take(L"Bridge.PcbDoc:board"));
  EXPECT_TRUE(names.Take(L"Panel.PcbDoc:a"));
  EXPECT_FALSE(names.Take(L"Panel.PcbDoc"));
}

}  // namespace
}  // namespace kestrune
