#include "vexa/util/Image.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"
#include "vexa/privileged/BrindleUtility.h"

namespace vexa {
namespace image_test {

TEST(ImageTest, PngRoundTripAndScaling) {
  test::TempDir dir;
  auto red = Image::filled(40, 20, 0xFF0000FF);
  ASSERT_TRUE(red);
  ASSERT_TRUE(red->writePNG(dir / "red.png"));
  auto loaded = Image::load(dir / "red.png");
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->width(), 40);
  EXPECT_EQ(loaded->height(), 20);
  EXPECT_EQ(loaded->pixel(5, 5), 0xFF0000FFu);
  EXPECT_EQ(loaded->pixel(40, 0), 0u);
  auto small = loaded->scaled(8, 4);
  ASSERT_TRUE(small);
  EXPECT_EQ(small->pixel(3, 2), 0xFF0000FFu);  // opaque all over
  EXPECT_FALSE(loaded->scaled(0, 4));
  EXPECT_FALSE(Image::load(dir.write("not-an-image.png", "plain text")));
  EXPECT_FALSE(Image::load(dir / "missing.png"));
}

TEST(ImageTest, ContentsDecideTheFormatAndHugePicturesAreReadSmaller) {
  test::TempDir dir;
  // No MIME database where the data folders point: the contents still say what it is.
  test::ScopedEnv dataDirs("XDG_DATA_DIRS", dir.mkdir("empty"));
  ASSERT_TRUE(Image::filled(16, 8, 0x00FF00FF)->writePNG(dir / "icon.icns"));
  auto named = Image::load(dir / "icon.icns");
  ASSERT_TRUE(named);
  EXPECT_EQ(named->width(), 16);
  dir.write("drawing.svg", R"(<svg xmlns="http://www.w3.org/2000/svg" width="20" height="10">)"
                           R"(<rect width="20" height="10" fill="#0000ff"/></svg>)");
  if (auto svg = Image::load(dir / "drawing.svg")) {  // when the SVG loader is installed
    EXPECT_EQ(svg->width(), 20);
    EXPECT_EQ(svg->pixel(10, 5), 0x0000FFFFu);
  }

  ASSERT_TRUE(Image::filled(8192, 16, 0xFFFFFFFF)->writePNG(dir / "wide.png"));
  auto wide = Image::load(dir / "wide.png");
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->width(), 4096);
  EXPECT_EQ(wide->height(), 8);
}

TEST(ImageTest, ThumbnailsKeepTheProportionOfTheLongestEdge) {
  struct Case {
    int w, h, length, expectW, expectH;
  } cases[] = {{200, 100, 64, 64, 32}, {100, 200, 64, 32, 64}, {50, 50, 64, 64, 64},
               {1000, 1, 64, 64, 1},   {1, 1000, 64, 1, 64},   {300, 200, 128, 128, 85}};
  for (const auto& c : cases) {
    auto thumbnail =
        BrindleUtility::createThumbnailWithImage(Image::filled(c.w, c.h, 0x00FF00FF), c.length);
    ASSERT_TRUE(thumbnail) << c.w << "x" << c.h;
    EXPECT_EQ(thumbnail->width(), c.expectW) << c.w << "x" << c.h;
    EXPECT_EQ(thumbnail->height(), c.expectH) << c.w << "x" << c.h;
  }
  EXPECT_FALSE(BrindleUtility::createThumbnailWithImage(nullptr, 64));
  EXPECT_FALSE(BrindleUtility::scalingImage(nullptr, 10, 10));
}

}  // namespace image_test
}  // namespace vexa
