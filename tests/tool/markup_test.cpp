// That text never becomes markup, wherever it is put.
#include "common/markup.h"

#include <gtest/gtest.h>

namespace kiv::tool {
namespace {

TEST(Markup, EscapesWhatHtmlReads) {
  EXPECT_EQ(Markup(L"<a href=\"x\" id='y'>&amp;</a>").html(),
            "&lt;a href=&quot;x&quot; id=&#39;y&#39;&gt;&amp;amp;&lt;/a&gt;");
}

TEST(Markup, ElementsEscapeTheirAttributesAndTexts) {
  EXPECT_EQ(element("p", {{"title", L"\"><script>"}}, L"</p><b>").html(),
            "<p title=\"&quot;&gt;&lt;script&gt;\">&lt;/p&gt;&lt;b&gt;</p>");
}

TEST(Markup, ElementsKeepTheElementsInThem) {
  EXPECT_EQ(element("p", element("b", L"<") + L">").html(), "<p><b>&lt;</b>&gt;</p>");
  EXPECT_EQ(emptyElement("input", {{"checked", L""}}).html(), "<input checked=\"\">");
}

TEST(Markup, SurrogatesWithoutTheirPairAreReplaced) { EXPECT_EQ(Markup(L"\xD800").html(), "\xEF\xBF\xBD"); }

}  // namespace
}  // namespace kiv::tool
