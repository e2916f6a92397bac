// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <libyuv.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdio>  // before jpeglib.h, which needs its types

#include <jerror.h>
#include <jpeglib.h>

#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

namespace {

/// A larger image than this would fill the pool with memory that no camera near the wanted size needs.
constexpr int mostLargerRows = 1080;

/// Room for the decoder's rows and coefficients of one picture: some 0.5 MB at 1280 pixels, growing with the
/// width. Pages that are never touched cost nothing.
constexpr std::size_t arenaBytes = std::size_t{8} << 20;

/// The vector code of the JPEG library wants rows on such borders, padded to twice as much.
constexpr std::size_t rowAlignment = 32;
constexpr std::size_t rowPadding = 2 * rowAlignment;

constexpr std::size_t roundUp(std::size_t value, std::size_t step) {
  return (value + step - 1) / step * step;
}

/// As what a JPEG picture is decoded: at its own size, or a half, a quarter or an eighth of it while that
/// still covers `wanted`.
VideoFormat reduced(VideoFormat picture, const Frame& wanted) {
  const VideoFormat whole = picture;
  for (int divisor = 2; divisor <= 8; divisor *= 2) {
    const int width = (whole.width + divisor - 1) / divisor;
    const int height = (whole.height + divisor - 1) / divisor;
    if (width < wanted.width() || height < wanted.height()) break;
    picture.width = width;
    picture.height = height;
  }
  return picture;
}

/// The largest part of a picture about its centre that has the shape of `wanted`, from an even column and row
/// on: cameras give colours for every second pixel.
Rect centredPart(const VideoFormat& size, const Frame& wanted) {
  const std::int64_t width =
      std::min<std::int64_t>(size.width, std::int64_t{size.height} * wanted.width() / wanted.height());
  const std::int64_t height =
      std::min<std::int64_t>(size.height, std::int64_t{size.width} * wanted.height() / wanted.width());
  const Rect part{0, 0, std::max(1, static_cast<int>(width)), std::max(1, static_cast<int>(height))};
  return {(size.width - part.width) / 4 * 2, (size.height - part.height) / 4 * 2, part.width, part.height};
}

}  // namespace

/// Decodes the single pictures of a motion-JPEG stream. What it needs for a picture it takes from an arena of
/// frame memory: no allocation per picture, and nothing of a picture in other memory.
class FrameConverter::JpegDecoder {
 public:
  JpegDecoder() {
    info_.err = jpeg_std_error(&errors_);
    errors_.error_exit = fail;
    errors_.emit_message = note;
    errors_.output_message = [](j_common_ptr) {};
    info_.client_data = this;
    jpeg_create_decompress(&info_);
    // NOLINTNEXTLINE(cppcoreguidelines-prefer-member-initializer): the library has just made it
    standard_ = *info_.mem;
    info_.mem->alloc_small = allocate;
    info_.mem->alloc_large = allocate;
    info_.mem->alloc_sarray = allocateSamples;
    info_.mem->alloc_barray = allocateBlocks;
    info_.mem->free_pool = freePool;
  }
  ~JpegDecoder() { jpeg_destroy_decompress(&info_); }
  JpegDecoder(const JpegDecoder&) = delete;
  JpegDecoder& operator=(const JpegDecoder&) = delete;

  /// Decodes a picture of `format` as `shown`, which it may be `reduced` to, and fills `target` with that
  /// part. False when the bytes are anything else; the content of `target` is then undefined.
  bool decode(const RawFrame::Plane& bytes, const VideoFormat& format, const VideoFormat& shown,
              const Rect& part, Frame& target) {
    if (bytes.size == 0 || format.width <= 0 || format.height <= 0) return false;
    damaged_ = false;
    row_.resize(std::size_t{4} * static_cast<std::size_t>(shown.width));
    const bool decoded = decodeWithin(bytes, format, shown, part, target);
    jpeg_abort_decompress(&info_);
    return decoded;
  }

 private:
  static JpegDecoder& of(j_common_ptr common) { return *static_cast<JpegDecoder*>(common->client_data); }

  /// Leaves the library from anywhere inside it; no object with a destructor lives in the frames between.
  [[noreturn]] static void fail(j_common_ptr common) { std::longjmp(of(common).failed_, 1); }

  static void note(j_common_ptr common, int level) {
    if (level >= 0) return;
    // Cameras do put spare bytes between segments and forget the end mark; a picture with other warnings has
    // holes. One that ends too early gives another warning besides.
    const int code = common->err->msg_code;
    if (code != JWRN_EXTRANEOUS_DATA && code != JWRN_JPEG_EOF) of(common).damaged_ = true;
  }

  void* take(std::size_t bytes) {
    const std::size_t rounded = roundUp(bytes, rowAlignment);
    if (rounded < bytes || rounded > arenaBytes - used_) fail(reinterpret_cast<j_common_ptr>(&info_));
    void* taken = arena_.data() + used_;
    used_ += rounded;
    return taken;
  }

  template <class Element>
  Element** takeRows(std::size_t elements, JDIMENSION rows) {
    auto** const array = static_cast<Element**>(take(rows * sizeof(Element*)));
    auto* row = static_cast<Element*>(take(sizeof(Element) * elements * rows));
    for (JDIMENSION i = 0; i < rows; ++i, row += elements) array[i] = row;
    return array;
  }

  static void* allocate(j_common_ptr common, int pool, std::size_t bytes) {
    JpegDecoder& self = of(common);
    if (pool != JPOOL_IMAGE) return self.standard_.alloc_small(common, pool, bytes);
    return self.take(bytes);
  }

  static JSAMPARRAY allocateSamples(j_common_ptr common, int pool, JDIMENSION width, JDIMENSION rows) {
    JpegDecoder& self = of(common);
    if (pool != JPOOL_IMAGE) return self.standard_.alloc_sarray(common, pool, width, rows);
    return self.takeRows<JSAMPLE>(roundUp(width * sizeof(JSAMPLE), rowPadding), rows);
  }

  static JBLOCKARRAY allocateBlocks(j_common_ptr common, int pool, JDIMENSION blocks, JDIMENSION rows) {
    JpegDecoder& self = of(common);
    if (pool != JPOOL_IMAGE) return self.standard_.alloc_barray(common, pool, blocks, rows);
    return self.takeRows<JBLOCK>(blocks, rows);
  }

  static void freePool(j_common_ptr common, int pool) {
    JpegDecoder& self = of(common);
    if (pool == JPOOL_IMAGE) self.used_ = 0;
    self.standard_.free_pool(common, pool);
  }

  /// Runs inside the jump's reach, hence without objects that need destroying.
  bool decodeWithin(const RawFrame::Plane& bytes, const VideoFormat& format, const VideoFormat& shown,
                    const Rect& part, Frame& target) {
    if (setjmp(failed_) != 0) return false;  // NOLINT(cert-err52-cpp): the library knows no other way out
    jpeg_mem_src(&info_, bytes.data, bytes.size);
    if (jpeg_read_header(&info_, TRUE) != JPEG_HEADER_OK) return false;
    if (info_.image_width != static_cast<JDIMENSION>(format.width) ||
        info_.image_height != static_cast<JDIMENSION>(format.height)) {
      return false;
    }
    // Cameras send baseline pictures; the other kinds would need the whole picture in memory.
    if (info_.progressive_mode || info_.arith_code || jpeg_has_multiple_scans(&info_)) return false;
    if (info_.num_components != 3) return false;

    info_.out_color_space = JCS_EXT_BGRA;
    info_.dct_method = JDCT_ISLOW;
    info_.do_fancy_upsampling = FALSE;
    info_.scale_num =
        static_cast<unsigned>(shown.width * 8 + format.width / 2) / static_cast<unsigned>(format.width);
    info_.scale_denom = 8;
    if (!jpeg_start_decompress(&info_)) return false;
    if (info_.output_width != static_cast<JDIMENSION>(shown.width) ||
        info_.output_height != static_cast<JDIMENSION>(shown.height)) {
      return false;
    }
    for (int y = 0; y < part.y + part.height; ++y) {
      JSAMPROW row = row_.data();
      if (jpeg_read_scanlines(&info_, &row, 1) != 1) return false;
      if (y < part.y) continue;
      std::copy_n(row_.data() + std::ptrdiff_t{part.x} * 4, target.stride(),
                  target.data() + std::ptrdiff_t{y - part.y} * target.stride());
    }
    return !damaged_;
  }

  jpeg_decompress_struct info_{};
  jpeg_error_mgr errors_{};
  jpeg_memory_mgr standard_{};  // the library's own functions, for what outlives a picture
  std::jmp_buf failed_{};
  FrameMemory<std::byte> arena_{arenaBytes};
  FrameMemory<JSAMPLE> row_;
  std::size_t used_ = 0;
  bool damaged_ = false;
};

FrameConverter::FrameConverter() = default;
FrameConverter::~FrameConverter() = default;

bool FrameConverter::convert(const RawFrame& raw, Frame& target) {
  if (target.empty()) return false;
  const bool isJpeg = raw.format.pixels == PixelFormat::mjpeg;
  const VideoFormat shown = isJpeg ? reduced(raw.format, target) : raw.format;
  const Rect part = centredPart(shown, target);
  target.resize(target.width(), target.height());  // without the larger image of an earlier picture
  if (part.width == target.width() && part.height == target.height()) return decode(raw, shown, part, target);

  const bool isLarger = part.width > target.width() && part.height > target.height();
  const bool kept = isLarger && part.height <= mostLargerRows;
  if (!kept) scratch_.resize(part.width, part.height);
  Frame& cut = kept ? target.resizeLarger(part.width, part.height) : scratch_;
  return decode(raw, shown, part, cut) &&
         libyuv::ARGBScale(cut.data(), cut.stride(), cut.width(), cut.height(), target.data(),
                           target.stride(), target.width(), target.height(), libyuv::kFilterBox) == 0;
}

bool FrameConverter::decode(const RawFrame& raw, const VideoFormat& shown, const Rect& part, Frame& target) {
  const auto& [first, second, third] = raw.planes;
  const auto at = [&](const RawFrame::Plane& plane, int rowsPerRow, int bytes) {
    return plane.data + std::ptrdiff_t{part.y / rowsPerRow} * plane.stride + bytes;
  };
  const auto read = [&, plane = raw.planes[0]](auto conversion) {
    const int left = part.x * pixelBytes(raw.format.pixels);
    return conversion(at(plane, 1, left), plane.stride, target.data(), target.stride(), part.width,
                      part.height) == 0;
  };
  // What libyuv calls ARGB is a 32-bit number; in memory its bytes are B, G, R, A. Its names of the others
  // are mirrored, too, and what it calls RAW has the bytes R, G, B.
  switch (raw.format.pixels) {
    case PixelFormat::yuy2:
      return read(libyuv::YUY2ToARGB);
    case PixelFormat::bgrx:
      return read(libyuv::ARGBCopy);
    case PixelFormat::rgbx:
      return read(libyuv::ABGRToARGB);
    case PixelFormat::bgr:
      return read(libyuv::RGB24ToARGB);
    case PixelFormat::rgb:
      return read(libyuv::RAWToARGB);
    case PixelFormat::nv12:
      return libyuv::NV12ToARGB(at(first, 1, part.x), first.stride, at(second, 2, part.x), second.stride,
                                target.data(), target.stride(), part.width, part.height) == 0;
    case PixelFormat::i420:
      return libyuv::I420ToARGB(at(first, 1, part.x), first.stride, at(second, 2, part.x / 2), second.stride,
                                at(third, 2, part.x / 2), third.stride, target.data(), target.stride(),
                                part.width, part.height) == 0;
    case PixelFormat::mjpeg:
      if (!jpeg_) jpeg_ = std::make_unique<JpegDecoder>();
      return jpeg_->decode(first, raw.format, shown, part, target);
  }
  return false;
}

}  // namespace sentrel
