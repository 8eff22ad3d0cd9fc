// Images through gdk-pixbuf, the desktop's own image loader.
#include <gdk-pixbuf/gdk-pixbuf.h>

#include "vexa/util/Image.h"

namespace vexa {

struct Image::Impl {
  explicit Impl(GdkPixbuf* p) : pixbuf(p) {}
  ~Impl() { g_object_unref(pixbuf); }
  GdkPixbuf* pixbuf;
};

Image::Image(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Image::~Image() = default;

std::shared_ptr<Image> Image::load(const std::string& path) {
  GError* error = nullptr;
  GdkPixbuf* pixbuf = gdk_pixbuf_new_from_file(path.c_str(), &error);
  if (!pixbuf) {
    g_clear_error(&error);
    return nullptr;
  }
  return std::make_shared<Image>(std::make_unique<Impl>(pixbuf));
}

std::shared_ptr<Image> Image::filled(int width, int height, uint32_t rgba) {
  if (width < 1 || height < 1) return nullptr;
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, width, height);
  if (!pixbuf) return nullptr;
  gdk_pixbuf_fill(pixbuf, rgba);
  return std::make_shared<Image>(std::make_unique<Impl>(pixbuf));
}

int Image::width() const { return gdk_pixbuf_get_width(impl_->pixbuf); }

int Image::height() const { return gdk_pixbuf_get_height(impl_->pixbuf); }

std::shared_ptr<Image> Image::scaled(int width, int height) const {
  if (width < 1 || height < 1) return nullptr;
  // Drawn onto a cleared canvas with an alpha channel, so the result is always RGBA.
  GdkPixbuf* canvas = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, width, height);
  if (!canvas) return nullptr;
  gdk_pixbuf_fill(canvas, 0);
  gdk_pixbuf_composite(impl_->pixbuf, canvas, 0, 0, width, height, 0, 0,
                       static_cast<double>(width) / this->width(),
                       static_cast<double>(height) / this->height(), GDK_INTERP_BILINEAR, 255);
  return std::make_shared<Image>(std::make_unique<Impl>(canvas));
}

uint32_t Image::pixel(int x, int y) const {
  if (x < 0 || y < 0 || x >= width() || y >= height()) return 0;
  const int channels = gdk_pixbuf_get_n_channels(impl_->pixbuf);
  const guchar* p = gdk_pixbuf_read_pixels(impl_->pixbuf) +
                    y * gdk_pixbuf_get_rowstride(impl_->pixbuf) + x * channels;
  const uint32_t alpha = channels == 4 ? p[3] : 255;
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | alpha;
}

bool Image::writePNG(const std::string& path) const {
  GError* error = nullptr;
  const gboolean saved = gdk_pixbuf_save(impl_->pixbuf, path.c_str(), "png", &error, nullptr);
  g_clear_error(&error);
  return saved;
}

}  // namespace vexa
