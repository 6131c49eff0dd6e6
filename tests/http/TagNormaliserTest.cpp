#include <gtest/gtest.h>

#include "http/TagNormaliser.h"

namespace TesselServer {
namespace {

TEST(TagNormaliserTest, TagsLoseTheirBlanksAndQuotes) {
  const struct {
    const char *page, *result, *why;
  } cases[] = {
      {"", "", "nothing"},
      {" \"a b\" > ", " \"a b\" > ", "no tag"},
      {"<!--#include file = \"a b.htm\" -->", "<!--#includefile=ab.htm-->", "blanks inside the name are lost too"},
      {"<%= Request.QueryString( \"a\" ) %>", "<%=Request.QueryString(a)%>", "a script tag"},
      {" a <% b %> c <!--# d --> e ", " a <%b%> c <!--#d--> e ", "only what is inside tags"},
      {"<% a > b %>", "<%a> b %>", "the next \">\" ends it"},
      {"<%= a -> b %> c %>", "<%=a-> b %> c %>", "any \">\""},
      {"<% a", "<% a", "no end"},
      {"<!--# a", "<!--# a", "no end"},
      {"<% a %> <% b", "<%a%> <% b", "an opener without an end leaves those in front of it"},
      {"<!--# a --> <!--# b", "<!--#a--> <!--# b", "an opener without an end leaves those in front of it"},
      {"<!-- # a -->", "<!-- # a -->", "an opener has no blanks of its own"},
      {"< % a %>", "< % a %>", "an opener has no blanks of its own"},
      {"<!--# a <% b > c %>", "<!--#a<%b> c %>", "one inside the other"},
      {"<% a <!--# b > c -->", "<%a<!--#b> c -->", "one inside the other"},
      {"<!--# a <% b", "<!--# a <% b", "neither ends"},
      {"<!--# a --> <% b", "<!--#a--> <% b", "each kind ends for itself"},
      {"<!--# a <% b %> <!--# c", "<!--#a<%b%> <!--# c", "each kind ends for itself"},
      {"<% a <% b > c >", "<%a<%b> c >", "the same inside itself"},
      {"<!--# \t\"\r\n'a' -->", "<!--#\t\r\n'a'-->", "tabs, line ends and single quotes stay"},
      {"<%\"\" \"\"%>", "<%%>", "nothing left"},
      {"<%>< %>", "<%>< %>", "an empty tag"},
      {"<%<% > > <% >", "<%<%> > <%>", "openers side by side"},
      {"<!--#echo var=\"A B\" -->x<!--#echo var=C -->", "<!--#echovar=AB-->x<!--#echovar=C-->", "one behind the other"},
      {"<< %%>", "<< %%>", "nearly an opener"},
      {"<!--#\"<%\" >", "<!--#<%>", "the second kind sees what the first has left"},
      {"<!--# < % >  >", "<!--#<%>  >", "an opener that the first kind has made, ended by the same \">\""},
  };
  for (const auto& c : cases) EXPECT_EQ(NormaliseTags(c.page), c.result) << c.why;
}

TEST(TagNormaliserTest, EveryOtherByteStays) {
  std::string bytes, kept;
  for (int i = 0; i < 256; ++i) {
    const char c = static_cast<char>(i);
    if (c == '>') continue;
    bytes += c;
    if (c != ' ' && c != '"') kept += c;
  }
  EXPECT_EQ(NormaliseTags("<%" + bytes + ">" + bytes), "<%" + kept + ">" + bytes);
  EXPECT_EQ(NormaliseTags("<!--#" + bytes + ">" + bytes), "<!--#" + kept + ">" + bytes);
}

TEST(TagNormaliserTest, LongPagesAreOneWalk) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  const std::string blanks(kMebibyte, ' ');
  EXPECT_EQ(NormaliseTags("<%" + blanks + "%>"), "<%%>");
  EXPECT_EQ(NormaliseTags("<%" + blanks), "<%" + blanks);
  std::string openers, bare, tags, compact;
  for (std::size_t i = 0; i < kMebibyte / 4; ++i) {
    openers += "<% \"";
    bare += "<%";
    tags += "<%= >";
    compact += "<%=>";
  }
  EXPECT_EQ(NormaliseTags(openers), openers);
  EXPECT_EQ(NormaliseTags(openers + ">"), bare + ">");
  EXPECT_EQ(NormaliseTags(tags), compact);
}

}  // namespace
}  // namespace TesselServer
