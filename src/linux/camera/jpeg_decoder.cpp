// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/jpeg_decoder.h"

#include <csetjmp>
#include <cstdio>  // before jpeglib.h, which needs its types

#include <jerror.h>
#include <jpeglib.h>

#include "support/frame_memory.h"

namespace sentrel {

namespace {

/// Room for the decoder's rows and coefficients of one picture: some 0.5 MB at 1280 pixels, growing with the
/// width. Pages that are never touched cost nothing.
constexpr std::size_t arenaBytes = std::size_t{8} << 20;

/// The vector code of the library wants rows on such borders, padded to twice as much.
constexpr std::size_t rowAlignment = 32;
constexpr std::size_t rowPadding = 2 * rowAlignment;

constexpr std::size_t roundUp(std::size_t value, std::size_t step) {
  return (value + step - 1) / step * step;
}

}  // namespace

struct JpegDecoder::State {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  jpeg_memory_mgr standard{};  // the library's own functions, for what outlives a picture
  std::jmp_buf failed{};
  FrameMemory<std::byte> arena{arenaBytes};
  std::size_t used = 0;
  bool damaged = false;

  static State& of(void* common) {
    return *static_cast<State*>(static_cast<j_common_ptr>(common)->client_data);
  }

  /// Leaves the library from anywhere inside it; no object with a destructor lives in the frames between.
  [[noreturn]] static void fail(j_common_ptr common) { std::longjmp(of(common).failed, 1); }

  static void note(j_common_ptr common, int level) {
    if (level >= 0) return;
    // Cameras do put spare bytes between segments and forget the end mark; a picture with other warnings has
    // holes. One that ends too early gives another warning besides.
    const int code = common->err->msg_code;
    if (code != JWRN_EXTRANEOUS_DATA && code != JWRN_JPEG_EOF) of(common).damaged = true;
  }

  void* take(std::size_t bytes) {
    const std::size_t rounded = roundUp(bytes, rowAlignment);
    if (rounded < bytes || rounded > arenaBytes - used) fail(reinterpret_cast<j_common_ptr>(&info));
    void* taken = arena.data() + used;
    used += rounded;
    return taken;
  }

  static void* allocate(j_common_ptr common, int pool, std::size_t bytes) {
    State& state = of(common);
    if (pool != JPOOL_IMAGE) return state.standard.alloc_small(common, pool, bytes);
    return state.take(bytes);
  }

  static JSAMPARRAY allocateSamples(j_common_ptr common, int pool, JDIMENSION width, JDIMENSION rows) {
    State& state = of(common);
    if (pool != JPOOL_IMAGE) return state.standard.alloc_sarray(common, pool, width, rows);
    auto* const array = static_cast<JSAMPARRAY>(state.take(rows * sizeof(JSAMPROW)));
    const std::size_t rowBytes = roundUp(width * sizeof(JSAMPLE), rowPadding);
    auto* row = static_cast<JSAMPROW>(state.take(rowBytes * rows));
    for (JDIMENSION i = 0; i < rows; ++i, row += rowBytes) array[i] = row;
    return array;
  }

  static JBLOCKARRAY allocateBlocks(j_common_ptr common, int pool, JDIMENSION blocks, JDIMENSION rows) {
    State& state = of(common);
    if (pool != JPOOL_IMAGE) return state.standard.alloc_barray(common, pool, blocks, rows);
    auto* const array = static_cast<JBLOCKARRAY>(state.take(rows * sizeof(JBLOCKROW)));
    auto* row = static_cast<JBLOCKROW>(state.take(sizeof(JBLOCK) * blocks * rows));
    for (JDIMENSION i = 0; i < rows; ++i, row += blocks) array[i] = row;
    return array;
  }

  static void freePool(j_common_ptr common, int pool) {
    State& state = of(common);
    if (pool == JPOOL_IMAGE) state.used = 0;
    state.standard.free_pool(common, pool);
  }

  /// Runs inside the jump's reach, hence without objects that need destroying.
  bool decodeWithin(const std::uint8_t* bytes, std::size_t size, int width, int height, Frame& target) {
    if (setjmp(failed) != 0) return false;  // NOLINT(cert-err52-cpp): the library knows no other way out
    jpeg_mem_src(&info, bytes, size);
    if (jpeg_read_header(&info, TRUE) != JPEG_HEADER_OK) return false;
    if (info.image_width != static_cast<JDIMENSION>(width) ||
        info.image_height != static_cast<JDIMENSION>(height)) {
      return false;
    }
    // Cameras send baseline pictures; the other kinds would need the whole picture in memory.
    if (info.progressive_mode || info.arith_code || jpeg_has_multiple_scans(&info)) return false;
    if (info.num_components != 3) return false;

    info.out_color_space = JCS_EXT_BGRA;
    info.dct_method = JDCT_ISLOW;
    info.do_fancy_upsampling = FALSE;
    info.scale_num = static_cast<unsigned>(target.width() * 8 + width / 2) / static_cast<unsigned>(width);
    info.scale_denom = 8;
    if (!jpeg_start_decompress(&info)) return false;
    if (info.output_width != static_cast<JDIMENSION>(target.width()) ||
        info.output_height != static_cast<JDIMENSION>(target.height())) {
      return false;
    }
    while (info.output_scanline < info.output_height) {
      JSAMPROW row = target.data() + static_cast<std::size_t>(info.output_scanline) *
                                         static_cast<std::size_t>(target.stride());
      if (jpeg_read_scanlines(&info, &row, 1) != 1) return false;
    }
    return !damaged;
  }
};

JpegDecoder::JpegDecoder() : state_(std::make_unique<State>()) {
  State& state = *state_;
  state.info.err = jpeg_std_error(&state.errors);
  state.errors.error_exit = State::fail;
  state.errors.emit_message = State::note;
  state.errors.output_message = [](j_common_ptr) {};
  state.info.client_data = &state;
  jpeg_create_decompress(&state.info);
  state.standard = *state.info.mem;
  state.info.mem->alloc_small = State::allocate;
  state.info.mem->alloc_large = State::allocate;
  state.info.mem->alloc_sarray = State::allocateSamples;
  state.info.mem->alloc_barray = State::allocateBlocks;
  state.info.mem->free_pool = State::freePool;
}

JpegDecoder::~JpegDecoder() {
  jpeg_destroy_decompress(&state_->info);
}

JpegDecoder::Size JpegDecoder::reducedSize(int width, int height, int wantedWidth, int wantedHeight) {
  Size size{width, height};
  for (int divisor = 2; divisor <= 8; divisor *= 2) {
    const Size smaller{(width + divisor - 1) / divisor, (height + divisor - 1) / divisor};
    if (smaller.width < wantedWidth || smaller.height < wantedHeight) break;
    size = smaller;
  }
  return size;
}

bool JpegDecoder::decode(const std::uint8_t* bytes, std::size_t size, int width, int height, Frame& target) {
  if (size == 0 || width <= 0 || height <= 0) return false;
  state_->damaged = false;
  const bool decoded = state_->decodeWithin(bytes, size, width, height, target);
  jpeg_abort_decompress(&state_->info);
  return decoded;
}

}  // namespace sentrel
