// The memory report as a whole: its fixed lines, one row per accounting
// entry in each row form, and the sums trailer. Every test runs in a process
// of its own, so the tables start empty.
#include <gtest/gtest.h>

#include <string>

#include "captured_stream.h"
#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/module_log.h"
#include "support/allocated_bytes.h"
#include "support/report_text.h"

namespace {

using Quendal::Classification::LookUpModuleId;
using quendal_test::CapturedStream;

const char* const kFixedLines = QuendalTest::kReportHead;

const char kZeroTrailer[] = "\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n0;0;0;0;\n";

std::string Report() {
  CapturedStream stream;
  AllocMemoryTable::dumpModules(stream.get(), 0);
  return stream.Text();
}

void Record(unsigned short module, unsigned short subModule, int used, int maxUsed, int count) {
  AllocMemoryTable::mapHeapAllocData& value =
      (*getModuleMemMap())[(static_cast<unsigned long>(module) << 16) | subModule];
  value.used = used;
  value.maxUsed = maxUsed;
  value.count = count;
}

// The rows between the fixed lines and the trailer.
std::string Rows(const std::string& report) {
  const std::string fixed(kFixedLines);
  const size_t trailer = report.find("\nCurrentSum;");
  if (report.compare(0, fixed.size(), fixed) != 0 || trailer == std::string::npos) {
    return "<malformed report>";
  }
  return report.substr(fixed.size(), trailer - fixed.size());
}

int CountLines(const std::string& text) {
  int lines = 0;
  for (char c : text) {
    lines += c == '\n';
  }
  return lines;
}

TEST(MemoryReportTest, EmptyTableGivesTheFixedLinesFollowedByTheTrailer) {
  EXPECT_EQ(std::string(kFixedLines) + kZeroTrailer, Report());
}

TEST(MemoryReportTest, EmptyReportReadsAsTheDocumentedLines) {
  EXPECT_EQ(
      "\n"
      "QUENDAL_HEAP_DEBUGGER; not defined\n"
      "TRACE_QDALLOCS; not defined\n"
      "USE_MEMTABLE; not defined\n"
      "USE_MEMALLOC_CHECKER; not defined\n"
      "DUMP_AT_END; not defined\n"
      "\n"
      "ModuleID;SubMId;Used;MaxUsed;Limit;Count;;;\n"
      "\n"
      "CurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n"
      "0;0;0;0;\n",
      Report());
}

TEST(MemoryReportTest, NullStreamWritesNothingAndQueriesNoTable) {
  Record(1, 0, 1, 1, 1);
  Record(2, 0, 2, 2, 2);
  // A walk of the accounting table in progress: a query would restart it.
  AllocMemoryTable::ModuleMemMap& table = *getModuleMemMap();
  table.StartIteration();
  unsigned long key = 0;
  AllocMemoryTable::mapHeapAllocData value;
  bool hasSuccessor = false;
  ASSERT_TRUE(table.NextEntry(key, value, hasSuccessor));
  ASSERT_TRUE(hasSuccessor);

  AllocMemoryTable::dumpModules(nullptr, 0);

  EXPECT_FALSE(table.IsIterationDone());
  ASSERT_TRUE(table.NextEntry(key, value, hasSuccessor));
  EXPECT_FALSE(hasSuccessor);
}

TEST(MemoryReportTest, TrailerPrintsCurrentMaxAdditionalAndMaxAdditionalInThatOrder) {
  *getMaxAddStorage() = 4;
  *getSumMaxVal() = 2;
  *getCurAddStorage() = 3;
  *getCurVal() = -1;
  const std::string report = Report();
  EXPECT_EQ("\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n-1;2;3;4;\n",
            report.substr(report.find("\nCurrentSum;")));
}

TEST(MemoryReportTest, ModuleKnownToTheLogGivesANamedRowWithMinus9999) {
  QDLog::SetClassIdCb log;
  const unsigned short audio = LookUpModuleId("audio");
  Record(audio, 3, 100, 250, 7);
  EXPECT_EQ("audio;3;100;250;-9999;7\n", Rows(Report()));
}

TEST(MemoryReportTest, ModuleUnknownToTheLogGivesAnIdRowWithMinus999AndTrailingSemicolon) {
  Record(12, 5, 100, 250, 7);
  EXPECT_EQ("12;5;100;250;-999;7;\n", Rows(Report()));
}

TEST(MemoryReportTest, ModuleWithoutAUsableNamePrintsUnderMAndItsId) {
  QuendalTest::LeaksIgnored leaksIgnored;
  unsigned short audio = 0;
  {
    QDLog::SetClassIdCb log;
    audio = LookUpModuleId("audio");
  }
  Record(audio, 0, 1, 2, 3);
  EXPECT_EQ("M_1;0;1;2;-9999;3\n", Rows(Report()));
}

TEST(MemoryReportTest, LongNameLoggedAsUnderscoreAndIdPrintsThatText) {
  QDLog::SetClassIdCb log;
  const unsigned short id = LookUpModuleId(std::string(64, 'x').c_str());
  Record(id, 0, 1, 2, 3);
  EXPECT_EQ("_1;0;1;2;-9999;3\n", Rows(Report()));
}

TEST(MemoryReportTest, NegativeValuesPrintAsNegativeNumbers) {
  Record(1, 65535, -5, -2147483647 - 1, -1);
  EXPECT_EQ("1;65535;-5;-2147483648;-999;-1;\n", Rows(Report()));
}

TEST(MemoryReportTest, RowsFollowTheTablesWalkOrderAndMixForms) {
  QDLog::SetClassIdCb log;
  const unsigned short audio = LookUpModuleId("audio");
  Record(audio, 0, 10, 10, 1);  // key 65536: bucket 13
  Record(0, 4, 20, 20, 2);      // key 4: bucket 1
  EXPECT_EQ("0;4;20;20;-999;2;\naudio;0;10;10;-9999;1\n", Rows(Report()));
}

TEST(MemoryReportTest, TableOfMoreThan256EntriesPrintsExactly256Rows) {
  for (unsigned short module = 1; module <= 300; ++module) {
    Record(module, 0, module, module, 1);
  }
  EXPECT_EQ(256, CountLines(Rows(Report())));
}

TEST(MemoryReportTest, TableOfExactly257EntriesPrints256Rows) {
  for (unsigned short module = 1; module <= 257; ++module) {
    Record(module, 0, module, module, 1);
  }
  EXPECT_EQ(256, CountLines(Rows(Report())));
}

TEST(MemoryReportTest, ReportLeavesTheStreamOpen) {
  CapturedStream stream;
  AllocMemoryTable::dumpModules(stream.get(), 0);
  EXPECT_GT(fputs("after\n", stream.get()), -1);
  const std::string text = stream.Text();
  EXPECT_EQ("after\n", text.substr(text.size() - 6));
}

TEST(MemoryReportTest, SecondReportRefillsItsWorkingStorage) {
  QDLog::SetClassIdCb log;
  Record(LookUpModuleId("audio"), 0, 1, 1, 1);
  const std::string first = Report();
  getModuleMemMap()->RemoveAll();
  Record(9, 0, 2, 2, 2);
  EXPECT_EQ("9;0;2;2;-999;2;\n", Rows(Report()));
  EXPECT_EQ("audio;0;1;1;-9999;1\n", Rows(first));
}

}  // namespace
