#include "rvitunes/base/Url.h"

#include <gtest/gtest.h>

namespace rvitunes {
namespace {

Url parsed(std::string_view text) {
  auto url = Url::parse(text);
  EXPECT_TRUE(url.has_value()) << text;
  return url ? *url : Url::fileUrlWithPath("/");
}

TEST(UrlTest, ReadsLibraryLocations) {
  const Url url = parsed(
      "file://localhost/Users/bob/Music/iTunes/iTunes%20Media/Music/"
      "%CE%9C%CE%AF%CE%BA%CE%B7%CF%82/Album/1-01%20Hidden.m4a");
  EXPECT_TRUE(url.isFileUrl());
  EXPECT_EQ(url.host(), "localhost");
  EXPECT_EQ(url.path(),
            "/Users/bob/Music/iTunes/iTunes Media/Music/\xCE\x9C\xCE\xAF\xCE\xBA\xCE\xB7\xCF\x82"
            "/Album/1-01 Hidden.m4a");
  EXPECT_EQ(url.lastPathComponent(), "1-01 Hidden.m4a");
  EXPECT_EQ(url.pathExtension(), "m4a");

  const Url song = parsed("file://localhost/Music/My%20Song.MP3");
  EXPECT_EQ(song.path(), "/Music/My Song.MP3");
  EXPECT_EQ(song.rawPath(), "/Music/My%20Song.MP3");
  EXPECT_EQ(song.pathExtension(), "MP3");

  const Url tmp = parsed("file:///tmp/x.mp3");
  EXPECT_TRUE(tmp.isFileUrl());
  EXPECT_EQ(tmp.host(), "");
  EXPECT_EQ(tmp.path(), "/tmp/x.mp3");
}

TEST(UrlTest, RejectsTextThatIsNotAUrl) {
  for (const char* text :
       {"", "not a url", "file://localhost/Music/My Song.mp3", "file:///a\tb",
        "file:///caf\xC3\xA9.mp3", "file:///a%2", "file:///a%zz", "file:///a%", "http://x/<a>",
        "http://x/\"q\"", "http://x/{a}", "http://x/a|b", "http://x/a\\b", "http://x/a^b",
        "http://x/a`b", "http://x/a#b#c", "http://x/\x7F"}) {
    EXPECT_FALSE(Url::parse(text).has_value()) << text;
  }
  EXPECT_FALSE(Url::parse(std::string_view("file:///a\0b", 11)).has_value());
}

TEST(UrlTest, SplitsComponents) {
  const Url web = parsed("HTTP://user:pw@Example.com:8080/a/b.html?x=1&y=%20#top");
  EXPECT_EQ(web.scheme(), "HTTP");
  EXPECT_FALSE(web.isFileUrl());
  EXPECT_EQ(web.host(), "Example.com");
  EXPECT_EQ(web.rawPath(), "/a/b.html");
  EXPECT_EQ(web.query(), "x=1&y=%20");
  EXPECT_EQ(web.fragment(), "top");
  EXPECT_EQ(parsed("http://[::1]:80/").host(), "::1");
  EXPECT_TRUE(parsed("FILE:/tmp/a").isFileUrl());

  const Url relative = parsed("Music/a.mp3");
  EXPECT_EQ(relative.scheme(), "");
  EXPECT_EQ(relative.path(), "Music/a.mp3");
  // A colon after a non-scheme character does not make a scheme.
  EXPECT_EQ(parsed("1a:b").scheme(), "");
}

TEST(UrlTest, DecodesPathsAndComponents) {
  const Url slash = parsed("http://example.com/a%2Fb");
  EXPECT_EQ(slash.path(), "/a/b");
  EXPECT_EQ(slash.lastPathComponent(), "a/b");  // split where the slashes are written

  const Url invalid = parsed("file:///music/%FF.mp3");
  EXPECT_EQ(invalid.path(), std::nullopt);
  EXPECT_EQ(invalid.lastPathComponent(), "");
  EXPECT_EQ(parsed("file:///%FF/ok.mp3").lastPathComponent(), "ok.mp3");
  EXPECT_EQ(parsed("file:///%ED%A0%80").path(), std::nullopt);  // a surrogate

  EXPECT_EQ(parsed("file:///a/b/").path(), "/a/b");
  EXPECT_EQ(parsed("file:///").path(), "/");
  EXPECT_EQ(parsed("file:///a/b/").lastPathComponent(), "b");
  EXPECT_EQ(parsed("file:///a/b//").lastPathComponent(), "b");
  EXPECT_EQ(parsed("file:///").lastPathComponent(), "/");
  EXPECT_EQ(parsed("http://example.com").lastPathComponent(), "");
}

TEST(UrlTest, FindsExtensions) {
  const std::pair<const char*, const char*> cases[] = {
      {"file:///a/b.mp3", "mp3"}, {"file:///a/b.tar.gz", "gz"}, {"file:///a/.hidden", ""},
      {"file:///a/b.", ""},       {"file:///a.d/b", ""},        {"file:///a/b.M4A/", "M4A"},
      {"file:///", ""},           {"file:///a/b%2Ec", "c"},
  };
  for (const auto& [text, extension] : cases) {
    EXPECT_EQ(parsed(text).pathExtension(), extension) << text;
  }
}

TEST(UrlTest, MakesFileUrlsThatParseBack) {
  EXPECT_EQ(Url::fileUrlWithPath("/tmp/My Song #1?.mp3").string(),
            "file:///tmp/My%20Song%20%231%3F.mp3");
  EXPECT_EQ(Url::fileUrlWithPath("/tmp/dir", true).string(), "file:///tmp/dir/");
  EXPECT_EQ(Url::fileUrlWithPath("/tmp/dir/", true).string(), "file:///tmp/dir/");
  EXPECT_EQ(Url::fileUrlWithPath("relative").string(), "file:///relative");

  const std::string awkward = "/M\xC3\xBAsica/50% <off>/a;b[1]\\c`{d}|^\"e\"\t.mp3";
  const Url url = Url::fileUrlWithPath(awkward);
  const auto again = Url::parse(url.string());
  ASSERT_TRUE(again.has_value()) << url.string();
  EXPECT_EQ(again->path(), awkward);
  EXPECT_EQ(again->lastPathComponent(), "a;b[1]\\c`{d}|^\"e\"\t.mp3");
}

TEST(UrlTest, PercentCodingHelpers) {
  EXPECT_EQ(percentDecode("a%20b%2fc%00"), std::string("a b/c\0", 6));
  EXPECT_EQ(percentDecode("%4"), std::nullopt);
  EXPECT_EQ(percentEncodePath("/a b/%/~x:@"), "/a%20b/%25/~x:@");
  std::string allBytes;
  for (int i = 0; i < 256; ++i)
    allBytes += static_cast<char>(i);
  EXPECT_EQ(percentDecode(percentEncodePath(allBytes)), allBytes);
}

}  // namespace
}  // namespace rvitunes
