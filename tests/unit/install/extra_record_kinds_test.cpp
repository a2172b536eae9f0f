#include "install/extra_record_kinds.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

using Kinds = std::vector<std::string>;

TEST(ExtraRecordKinds, NothingComesFromAbsentOrEmptyList) {
  EXPECT_EQ(ExtraRecordKinds(L""), Kinds{});
  EXPECT_EQ(ExtraRecordKinds(L" , ,\t,"), Kinds{});
}

TEST(ExtraRecordKinds, NamesAreTrimmedAndKeepTheirOrder) {
  EXPECT_EQ(ExtraRecordKinds(L"Change"), Kinds{"Change"});
  EXPECT_EQ(ExtraRecordKinds(L" Move ,\tChange\t,Alias"), (Kinds{"Move", "Change", "Alias"}));
}

TEST(ExtraRecordKinds, ARepeatedNameCountsOnce) {
  EXPECT_EQ(ExtraRecordKinds(L"Change,Move,Change"), (Kinds{"Change", "Move"}));
}

TEST(ExtraRecordKinds, NamesDifferByCase) {
  EXPECT_EQ(ExtraRecordKinds(L"change,Change,tree"), (Kinds{"change", "Change", "tree"}));
}

TEST(ExtraRecordKinds, KnownKindsAndEndAreDropped) {
  EXPECT_EQ(ExtraRecordKinds(L"Tree,PL,Link,Insertion,Deletion,Separator,End,Change"),
            Kinds{"Change"});
}

TEST(ExtraRecordKinds, InvalidKeywordsAreDropped) {
  EXPECT_EQ(ExtraRecordKinds(L"A B,C\tD,E'F,G\"H,I=J,K\nL,\u00C4nderung,M\u0001,N\u007F,Change"),
            Kinds{"Change"});
}

}  // namespace
}  // namespace kestrune
