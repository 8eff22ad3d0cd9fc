// Images through gdk-pixbuf, the desktop's own image loader.
#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "util/AtomicFile.h"
#include "vexa/util/Image.h"

namespace vexa {

struct Image::Impl {
  explicit Impl(GdkPixbuf* p) : pixbuf(p) {}
  ~Impl() { g_object_unref(pixbuf); }
  GdkPixbuf* pixbuf;
};

Image::Image(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Image::~Image() = default;

namespace {

constexpr int kMaxEdge = 4096;                           // larger pictures are read scaled down
constexpr std::size_t kMaxFile = std::size_t{64} << 20;  // and larger files not at all

// The loader for the file's contents, recognised by their first bytes, so that reading does
// not depend on the MIME database being where XDG_DATA_DIRS says. Null when unknown.
const char* formatOf(const std::string& head) {
  auto starts = [&](std::string_view magic) { return head.rfind(magic, 0) == 0; };
  if (starts("\x89PNG\r\n\x1a\n")) return "png";
  if (starts("\xff\xd8\xff")) return "jpeg";
  if (starts("GIF87a") || starts("GIF89a")) return "gif";
  if (starts("icns")) return "icns";
  if (starts("BM")) return "bmp";
  if (starts(std::string_view("\0\0\1\0", 4))) return "ico";
  if (starts("/* XPM */")) return "xpm";
  if (head.find("<svg") != std::string::npos) return "svg";
  return nullptr;
}

void limitSize(GdkPixbufLoader* loader, int width, int height, gpointer) {
  if (width <= kMaxEdge && height <= kMaxEdge) return;
  const double scale = static_cast<double>(kMaxEdge) / std::max(width, height);
  gdk_pixbuf_loader_set_size(loader, std::max(1, static_cast<int>(width * scale)),
                             std::max(1, static_cast<int>(height * scale)));
}

// gdk-pixbuf registers its types, reads its loader list and opens each loader module lazily,
// under GLib's own locks. The first use of each format (and every use of a format gdk-pixbuf
// has to sniff) therefore runs under a mutex of ours; later uses share only finished state and
// run freely. Modules are opened only for formats actually met: one can pull in large
// libraries.
class FirstUse {
 public:
  // Holds the set-up mutex when `key` is null or met for the first time.
  explicit FirstUse(const char* key) : lock_(mutex()) {
    static bool typesReady = false;
    static std::set<std::string>* met = new std::set<std::string>;
    if (!typesReady) {
      g_type_ensure(GDK_TYPE_PIXBUF);
      g_type_ensure(GDK_TYPE_PIXBUF_LOADER);
      g_slist_free(gdk_pixbuf_get_formats());
      typesReady = true;
    }
    if (key && !met->insert(key).second) lock_.unlock();
  }

 private:
  static std::mutex& mutex() {
    static std::mutex* m = new std::mutex;
    return *m;
  }
  std::unique_lock<std::mutex> lock_;
};

}  // namespace

std::shared_ptr<Image> Image::load(const std::string& path) {
  // Read by us, closed on exec: GLib's own file reading leaves the descriptor to children that
  // other threads spawn meanwhile.
  const auto contents = AtomicFile::read(path, kMaxFile);
  if (!contents || contents->empty()) return nullptr;
  const char* format = formatOf(contents->substr(0, 512));
  FirstUse firstUse(format);
  g_autoptr(GdkPixbufLoader) loader =
      format ? gdk_pixbuf_loader_new_with_type(format, nullptr) : gdk_pixbuf_loader_new();
  if (!loader) loader = gdk_pixbuf_loader_new();
  g_signal_connect(loader, "size-prepared", G_CALLBACK(limitSize), nullptr);
  const bool written = gdk_pixbuf_loader_write(
      loader, reinterpret_cast<const guchar*>(contents->data()), contents->size(), nullptr);
  const bool closed = gdk_pixbuf_loader_close(loader, nullptr);
  GdkPixbuf* pixbuf = written && closed ? gdk_pixbuf_loader_get_pixbuf(loader) : nullptr;
  if (!pixbuf) return nullptr;
  return std::make_shared<Image>(std::make_unique<Impl>(GDK_PIXBUF(g_object_ref(pixbuf))));
}

std::shared_ptr<Image> Image::filled(int width, int height, uint32_t rgba) {
  if (width < 1 || height < 1) return nullptr;
  FirstUse firstUse("pixbuf");
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
                    static_cast<ptrdiff_t>(y) * gdk_pixbuf_get_rowstride(impl_->pixbuf) +
                    static_cast<ptrdiff_t>(x) * channels;
  const uint32_t alpha = channels == 4 ? p[3] : 255;
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | alpha;
}

bool Image::writePNG(const std::string& path) const {
  FirstUse firstUse("png writer");
  g_autofree gchar* buffer = nullptr;
  gsize size = 0;
  if (!gdk_pixbuf_save_to_buffer(impl_->pixbuf, &buffer, &size, "png", nullptr, nullptr)) {
    return false;
  }
  // Replaced in one step, through a descriptor closed on exec.
  return !AtomicFile::write(path, std::string_view(buffer, size), 0644);
}

}  // namespace vexa
