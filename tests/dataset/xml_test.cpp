#include <gtest/gtest.h>

#include <thread>

#include "dataset/MXmlReader.h"
#include "engine/MMediator.h"
#include "support/TestHelpers.h"

using namespace quorvel;
using quorvel::test::errorOf;

namespace {

std::shared_ptr<TDatabase> convert(const std::string& body) {
  return TXmlReader("").convertText("<dataset>" + body + "</dataset>");
}

std::string failure(const std::string& body) {
  return errorOf([&] { convert(body); });
}

std::vector<std::string> column(TDatabase& db, const std::string& query) {
  std::vector<std::string> out;
  TCursorPtr c = db.execute(query);
  while (auto row = c->fetchone()) {
    std::string line;
    for (size_t i = 0; i < row->size(); ++i) line += (i ? "," : "") + dbValueText((*row)[i]);
    out.push_back(line);
  }
  return out;
}

}  // namespace

TEST(XmlReader, FormatErrorsCarryTheirPosition) {
  EXPECT_EQ(failure("<nodes>\n  <node nid=\"0\"/></nodes>"), "<node>: attribute 'nid' should not be 0 (line 2, column 2)");
  EXPECT_EQ(failure("<nodes><node/></nodes>"), "<node>: missing attribute 'nid' (line 1, column 16)");
  EXPECT_EQ(failure("<nodes><node nid=\"x1\"/></nodes>"), "<node>: attribute 'nid' should be an int (line 1, column 16)");
  EXPECT_EQ(failure("<nodes><node nid=\"1\"><attribute value=\"v\"/></node></nodes>"),
            "<attribute>: missing attribute 'key' (line 1, column 30)");
  EXPECT_EQ(failure("<nodes><node nid=\"1\"><attribute key=\"k\"/></node></nodes>"),
            "<attribute>: missing attribute 'value' (line 1, column 30)");
  EXPECT_EQ(failure("<edgeset><edge tonid=\"1\"/></edgeset>"), "<edge>: missing attribute 'fromnid' (line 1, column 18)");
  EXPECT_EQ(failure("<edgeset><edge fromnid=\"1\"/></edgeset>"), "<edge>: missing attribute 'tonid' (line 1, column 18)");
  // The integer conversion's own text, without a position.
  EXPECT_EQ(failure("<edgeset><edge fromnid=\"a\" tonid=\"1\"/></edgeset>"),
            "invalid literal for int() with base 10: 'a'");
  // Malformed XML: the parser's text.
  EXPECT_EQ(failure("<nodes></node>"), "<unknown>:1:18: mismatched tag");
  EXPECT_EQ(errorOf([] { TXmlReader("no-such.xml").convertToDatabase(); }), "Cannot open 'no-such.xml'");
}

TEST(XmlReader, ValuesIdsAndHierarchies) {
  auto db = convert(R"(
<nodes>
  <node nid="1"><attribute key="size" value="12.5"/><attr key="unit" value="12.5 m"/><attribute key="n" value="3"/></node>
  <node nid="2"/>
</nodes>
<hierarchy><edge fromnid="1" tonid="2"><attribute key="ignored" value="x"/></edge><edge fromnid="1" tonid="3"/></hierarchy>
<hierarchy><edge fromnid="3" tonid="1"/></hierarchy>
<hierarchy></hierarchy>
<edgeset>
  <edge fromnid="1" tonid="2"><attribute key="w" value="1"/></edge>
  <edge eid="7" fromnid="2" tonid="1"/>
  <edge eid="x" fromnid="2" tonid="2"/>
</edgeset>
<edges><edge fromnid="5" tonid="5"><attribute key="w" value="9"/></edge></edges>
<edgeset><edge fromnid="6" tonid="6"/></edgeset>
<nodeattributes><value x="1"/></nodeattributes>
<unknownthing><foo a="1"><bar/></foo></unknownthing>
)");
  EXPECT_EQ(column(*db, "SELECT nid,key,value,typeof(value) FROM nodeattr"),
            (std::vector<std::string>{"1,size,12.5,real", "1,unit,12.5 m,text", "1,n,3,integer"}))
      << "a node without attribute elements leaves no trace";
  EXPECT_EQ(column(*db, "SELECT hid,nid,parentnid,childorder FROM hierarchy"),
            (std::vector<std::string>{"1,2,1,1", "1,1,,1", "1,3,1,2", "2,1,3,3", "2,3,,3"}));
  EXPECT_EQ(column(*db, "SELECT eid,fromnid,tonid FROM edges ORDER BY rowid"),
            (std::vector<std::string>{"7,2,1", "10000,1,2", "10001,2,2"}))
      << "generated ids from 10000; later edge sets are ignored";
  EXPECT_EQ(column(*db, "SELECT eid,key,value FROM edgeattr"), (std::vector<std::string>{"10000,w,1"}));
  EXPECT_EQ(column(*db, "SELECT key,value FROM information ORDER BY rowid")[0], "database format version,2");
}

TEST(XmlReader, ExtraEdgeSetsAreReportedOnce) {
  auto saved = me.logger;
  me.logger = std::make_shared<TLogger>("xml.log");
  convert("<edgeset/><edges/><edgeset/>");
  size_t warnings = 0;
  for (const auto& r : me.logger->records())
    if (r.text == "Xml reader: Only one edgeset is currently supported. Ignoring other edgesets.") ++warnings;
  EXPECT_EQ(warnings, 2u);
  me.logger = saved;
}

TEST(XmlReader, StopParsingAbortsAtTheNextElement) {
  TXmlReader idle("x.xml");
  idle.stopParsing();  // no running conversion: nothing happens
  // A document large enough to stop half way.
  std::string body = "<nodes>";
  for (int i = 1; i <= 200000; ++i) body += "<node nid=\"" + std::to_string(i) + "\"><attribute key=\"k\" value=\"v\"/></node>";
  body += "</nodes>";
  TXmlReader reader("");
  std::string text;
  std::thread stopper([&reader] {
    while (!reader.isRunning()) std::this_thread::sleep_for(std::chrono::microseconds(100));
    reader.stopParsing();
  });
  try {
    reader.convertText("<dataset>" + body + "</dataset>");
  } catch (const std::exception& e) {
    text = e.what();
  }
  stopper.join();
  EXPECT_EQ(text.rfind("Aborted by the user (line 1, column ", 0), 0u) << text;
}
