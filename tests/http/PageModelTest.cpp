// Random pages, against models that are as plain as can be: whatever is done for speed changes nothing.

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "http/PageRewriter.h"
#include "http/TagNormaliser.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr std::size_t kNone = std::string::npos;

// ---- Normalisation, by the book: a new text for each kind of tag.

std::string PlainlyNormalised(std::string page) {
  for (const std::string opener : {"<!--#", "<%"}) {
    std::string result;
    std::size_t done = 0;
    for (;;) {
      const std::size_t tag = page.find(opener, done);
      const std::size_t end = tag == kNone ? kNone : page.find('>', tag);
      if (end == kNone) break;
      result += page.substr(done, tag - done);
      for (const char c : page.substr(tag, end - tag)) {
        if (c != ' ' && c != '"') result += c;
      }
      done = end;
    }
    page = result + page.substr(done);
  }
  return page;
}

// ---- Replacement, byte by byte. An author's byte knows its place in the author's text, so that two of them belong
// together only when they stood together there.

struct ModelByte {
  char value;
  std::size_t origin;  // kNone: put in
};
using ModelPage = std::vector<ModelByte>;

bool StandsAt(const ModelPage& page, std::size_t at, std::string_view text, bool anyCase) {
  if (at + text.size() > page.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const ModelByte& byte = page[at + i];
    if (byte.origin == kNone || byte.origin != page[at].origin + i) return false;
    if (anyCase ? UpperAscii(byte.value) != UpperAscii(text[i]) : byte.value != text[i]) return false;
  }
  return true;
}

std::size_t FindIn(const ModelPage& page, std::size_t from, std::string_view text, bool anyCase) {
  for (; from < page.size(); ++from) {
    if (StandsAt(page, from, text, anyCase)) return from;
  }
  return kNone;
}

std::string TextOf(const ModelPage& page, std::size_t begin, std::size_t end) {
  std::string text;
  for (; begin < end; ++begin) text += page[begin].value;
  return text;
}

// What becomes of a tag with that content: its own rule, so that both sides have the same. Null: it stays.
const std::string* ValueOf(std::string_view content) {
  static const std::string kValues[] = {"", "<%=e%>", "value", "-->", "<!--#echo=x-->"};
  const std::size_t choice = content.size() % 6;
  return choice == 5 ? nullptr : &kValues[choice];
}

void ReplaceInModel(ModelPage& page, std::string_view opener, std::string_view end) {
  std::size_t from = 0;
  for (;;) {
    const std::size_t tag = FindIn(page, from, opener, true);
    const std::size_t stop = tag == kNone ? kNone : FindIn(page, tag + opener.size(), end, false);
    if (stop == kNone) return;
    from = stop + end.size();
    const std::string* value = ValueOf(TextOf(page, tag + opener.size(), stop));
    if (value == nullptr) continue;
    const auto place = [&](std::size_t at) { return page.begin() + static_cast<std::ptrdiff_t>(at); };
    page.erase(place(tag), place(from));
    ModelPage inserted;
    for (const char c : *value) inserted.push_back({c, kNone});
    page.insert(place(tag), inserted.begin(), inserted.end());
    from = tag + inserted.size();
  }
}

void ReplaceInPage(Page& page, std::string_view opener, std::string_view end) {
  PageRewriter pass(page);
  while (pass.Find(opener, end)) {
    if (const std::string* value = ValueOf(pass.Content())) {
      pass.Replace(std::make_shared<const std::string>(*value));
    } else {
      pass.Keep();
    }
  }
}

std::string RandomPage(std::mt19937& random) {
  constexpr std::string_view kParts[] = {"<!--#", "<%", "<%=", "<!--#echo=", "<!--#ECHO=", "-->", "%>", ">",  " ",
                                         "\"",    "<",  "%",   "--",         "x",          "=",   "e",  "y z"};
  std::string page;
  for (std::size_t parts = random() % 24; parts > 0; --parts) page += kParts[random() % std::size(kParts)];
  return page;
}

TEST(PageModelTest, NormalisingIsWhatThePlainWayDoes) {
  std::mt19937 random(2);
  for (int round = 0; round < 20'000; ++round) {
    const std::string page = RandomPage(random);
    ASSERT_EQ(NormaliseTags(page), PlainlyNormalised(page)) << page;
  }
}

TEST(PageModelTest, ReplacingIsWhatThePlainWayDoes) {
  const struct {
    std::string_view opener, end;
  } passes[] = {{"<!--#echo=", "-->"}, {"<%=", "%>"}, {"<", ">"}, {"<!--#", ">"}, {"x", "e"}, {"<%=", "%>"}};
  std::mt19937 random(3);
  for (int round = 0; round < 20'000; ++round) {
    const std::string text = RandomPage(random);
    ModelPage model;
    for (std::size_t i = 0; i < text.size(); ++i) model.push_back({text[i], i});
    Page page(text);
    for (const auto& pass : passes) {
      ReplaceInModel(model, pass.opener, pass.end);
      ReplaceInPage(page, pass.opener, pass.end);
      ASSERT_EQ(page.Text(), TextOf(model, 0, model.size())) << text << " after " << pass.opener << pass.end;
    }
    ASSERT_EQ(*page.Result(), page.Text());
  }
}

}  // namespace
}  // namespace TesselServer
