// SPDX-License-Identifier: Apache-2.0
#include "stage/virtual_camera.h"

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>  // before jpeglib.h, which needs its types
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <jpeglib.h>

#include "linux/camera/pipewire_headers.h"
#include "stage/child_process.h"

namespace sentrel::test {

namespace {

using Format = PixelFormat;
using Mode = VirtualCamera::Mode;

const spa_pod* formatOf(const Mode& mode, spa_pod_builder& builder) {
  const spa_rectangle size{static_cast<std::uint32_t>(mode.width), static_cast<std::uint32_t>(mode.height)};
  const spa_fraction rate{static_cast<std::uint32_t>(mode.fps), 1};
  if (mode.format == Format::mjpeg) {
    spa_video_info_mjpg info{};
    info.size = size;
    info.framerate = rate;
    return spa_format_video_mjpg_build(&builder, SPA_PARAM_EnumFormat, &info);
  }
  constexpr std::array pixels{SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_NV12, SPA_VIDEO_FORMAT_I420,
                              SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_BGR,
                              SPA_VIDEO_FORMAT_RGB};
  spa_video_info_raw info{};
  info.format = pixels.at(static_cast<std::size_t>(mode.format));
  info.size = size;
  info.framerate = rate;
  return spa_format_video_raw_build(&builder, SPA_PARAM_EnumFormat, &info);
}

std::size_t encodeJpeg(const std::uint8_t* bgra, int width, int height, std::span<std::uint8_t> target) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);  // ends the process on an error: only a broken test can cause one
  jpeg_create_compress(&info);
  unsigned char* bytes = target.data();
  unsigned long size = target.size();
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 4;
  info.in_color_space = JCS_EXT_BGRA;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 92, TRUE);
  info.comp_info[0].h_samp_factor = 2;  // 4:2:2, as webcams do
  info.comp_info[0].v_samp_factor = 1;
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    auto* row = const_cast<JSAMPROW>(bgra + std::size_t{info.next_scanline} * info.image_width * 4);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  if (bytes == target.data()) return size;
  std::free(bytes);  // it outgrew the target
  return 0;
}

}  // namespace

struct VirtualCamera::Listener {
  explicit Listener(VirtualCamera& camera) {
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char* message) {
      auto& changed = *static_cast<VirtualCamera*>(self);
      changed.open_ = state == PW_STREAM_STATE_STREAMING;
      changed.listed_ = changed.open_ || state == PW_STREAM_STATE_PAUSED;
      if (state == PW_STREAM_STATE_ERROR) changed.error_ = message == nullptr ? "unknown error" : message;
      changed.stateChanged();
    };
    events.param_changed = [](void* self, std::uint32_t id, const spa_pod* parameter) {
      if (id == SPA_PARAM_Format && parameter != nullptr) static_cast<VirtualCamera*>(self)->agree(parameter);
    };
    pw_stream_add_listener(camera.stream_, &hook, &events, &camera);
  }
  ~Listener() { spa_hook_remove(&hook); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  pw_stream_events events{};
  spa_hook hook{};
};

VirtualCamera::VirtualCamera(Options options)
    : options_(std::move(options)),
      modes_(options_.modes),
      loop_("virtual-camera"),
      timer_(loop_.get(), [this] { present(); }) {
  loop_.start();
}

VirtualCamera::~VirtualCamera() {
  vanish();
  loop_.stop();
  if (context_ != nullptr) pw_context_destroy(context_);
}

void VirtualCamera::appear() {
  loop_.call([this] {
    if (stream_ != nullptr) return;
    error_.clear();
    connectStream();
  });
  // The loop is left to run between the looks.
  const auto decided = [this] {
    const PipeWireLoop::Lock lock(loop_);
    return listed_ || !error_.empty();
  };
  if (!waitUntil(decided, std::chrono::seconds(10), std::chrono::milliseconds(2)) || !error_.empty())
    throw std::runtime_error("the virtual camera cannot appear: " + error_);
}

void VirtualCamera::vanish() {
  loop_.call([this] {
    timer_.disarm();
    open_ = listed_ = false;
    listener_.reset();
    if (stream_ != nullptr) pw_stream_destroy(std::exchange(stream_, nullptr));
    if (core_ != nullptr) pw_core_disconnect(std::exchange(core_, nullptr));
  });
}

void VirtualCamera::setSource(Source source) {
  const PipeWireLoop::Lock lock(loop_);
  source_ = std::move(source);
  sourceBegan_.reset();
}

void VirtualCamera::setPlaying(bool playing) {
  const PipeWireLoop::Lock lock(loop_);
  playing_ = playing;
}

void VirtualCamera::setFault(Fault fault) {
  const PipeWireLoop::Lock lock(loop_);
  fault_ = fault;
}

bool VirtualCamera::isOpen() const {
  const PipeWireLoop::Lock lock(loop_);
  return open_;
}

std::optional<Mode> VirtualCamera::agreedMode() const {
  const PipeWireLoop::Lock lock(loop_);
  return mode_;
}

void VirtualCamera::connectStream() {
  if (context_ == nullptr) context_ = pw_context_new(loop_.get(), nullptr, 0);
  if (context_ != nullptr) core_ = pw_context_connect(context_, nullptr, 0);
  if (core_ == nullptr) {
    error_ = "there is no PipeWire daemon";
    return;
  }

  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_CLASS, options_.mediaClass.c_str(), PW_KEY_NODE_NAME, options_.name.c_str(),
      PW_KEY_NODE_DESCRIPTION, options_.description.c_str(), nullptr);
  if (!options_.role.empty()) pw_properties_set(properties, PW_KEY_MEDIA_ROLE, options_.role.c_str());
  if (!options_.location.empty()) {
    pw_properties_set(properties, "api.libcamera.location", options_.location.c_str());
  }
  stream_ = pw_stream_new(core_, options_.name.c_str(), properties);
  listener_ = std::make_unique<Listener>(*this);

  std::vector<std::uint8_t> storage;
  std::vector<const spa_pod*> parameters = offer(storage);
  // A camera decides when there is a picture, so it drives those who watch it.
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS);
  if (pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, parameters.data(),
                        static_cast<std::uint32_t>(parameters.size())) < 0) {
    error_ = "it cannot connect";
  }
}

std::vector<const spa_pod*> VirtualCamera::offer(std::vector<std::uint8_t>& storage) const {
  storage.resize(512 * modes_.size());
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  std::vector<const spa_pod*> parameters;
  for (const Mode& mode : modes_) parameters.push_back(formatOf(mode, builder));
  return parameters;
}

void VirtualCamera::setModes(std::vector<Mode> modes) {
  const PipeWireLoop::Lock lock(loop_);
  modes_ = std::move(modes);
  if (stream_ == nullptr) return;
  std::vector<std::uint8_t> storage;
  std::vector<const spa_pod*> parameters = offer(storage);
  pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void VirtualCamera::stateChanged() {
  if (!open_) return timer_.disarm();
  streamingSince_ = Clock::now();
  nextPeriod_ = 0;
  scheduleNext();
}

void VirtualCamera::agree(const spa_pod* format) {
  const auto agreed = parseFormat(format);
  const auto found = std::ranges::find_if(modes_, [&](const Mode& mode) {
    return agreed == VideoFormat{mode.format, mode.width, mode.height};
  });
  if (found == modes_.end()) {
    pw_stream_set_error(stream_, -EINVAL, "not one of the camera's modes");
    return;
  }
  mode_ = *found;
  const auto& [pixels, width, height, fps] = *found;
  grey_.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4, 128);
  std::array<std::uint8_t, 512> storage{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  const auto bytes = static_cast<int>(encodedCapacity(pixels, width, height));
  const std::array<const spa_pod*, 2> parameters{
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
          SPA_POD_CHOICE_RANGE_Int(8, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
          SPA_PARAM_BUFFERS_size, SPA_POD_Int(bytes), SPA_PARAM_BUFFERS_stride,
          SPA_POD_Int(encodedStride(pixels, width)))),
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
          SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))))};
  pw_stream_update_params(stream_, const_cast<const spa_pod**>(parameters.data()),
                          static_cast<std::uint32_t>(parameters.size()));
}

void VirtualCamera::scheduleNext() {
  const std::chrono::duration<double> period(1.0 / mode_->fps);
  auto due = streamingSince_ +
             std::chrono::duration_cast<Clock::duration>(period * static_cast<double>(nextPeriod_++));
  if (options_.jitterMs > 0) {
    due += std::chrono::milliseconds(
        std::uniform_int_distribution<int>(-options_.jitterMs, options_.jitterMs)(random_));
  }
  timer_.arm(due);
}

void VirtualCamera::present() {
  if (stream_ == nullptr || !open_) return;
  if (playing_) {
    if (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
      fill(*buffer->buffer, Clock::now());
      pw_stream_queue_buffer(stream_, buffer);
    }
    // Also without a buffer: the turn of the graph is what brings used ones back.
    pw_stream_trigger_process(stream_);
  }
  scheduleNext();
}

void VirtualCamera::fill(spa_buffer& buffer, Clock::time_point now) {
  spa_data& data = buffer.datas[0];
  if (data.data == nullptr) return;
  if (!sourceBegan_) sourceBegan_ = now;
  const std::chrono::duration<double> since = now - *sourceBegan_;
  const std::int64_t index = std::llround(since.count() * mode_->fps);
  const std::uint8_t* pixels = source_ ? source_(index) : grey_.data();
  const std::size_t size = encodePicture(mode_->format, pixels, mode_->width, mode_->height,
                                         std::span(static_cast<std::uint8_t*>(data.data), data.maxsize));
  *data.chunk = {.offset = 0,
                 .size = static_cast<std::uint32_t>(size),
                 .stride = encodedStride(mode_->format, mode_->width),
                 .flags = SPA_CHUNK_FLAG_NONE};
  auto* const header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header != nullptr) {
    *header = {};
    header->pts = now.time_since_epoch().count();
    header->seq = static_cast<std::uint64_t>(index);
  }
  if (fault_ != Fault::frozen) addNoise(data);
  spoil(data, header);
}

/// A step of brightness here and there: the picture looks the same, and its bytes are others.
void VirtualCamera::addNoise(spa_data& data) {
  if (mode_->format == PixelFormat::mjpeg || data.chunk->size == 0) return;
  const auto luma = static_cast<std::uint32_t>(mode_->width * mode_->height);
  const auto apart = static_cast<std::uint32_t>(std::max(pixelBytes(mode_->format), 1));
  for (int i = 0; i < 16; ++i) static_cast<std::uint8_t*>(data.data)[random_() % luma * apart] ^= 1U;
}

void VirtualCamera::spoil(spa_data& data, spa_meta_header* header) {
  spa_chunk& chunk = *data.chunk;
  if (fault_ == Fault::zeroLength) chunk.size = 0;
  if (fault_ == Fault::shortChunk) chunk.size /= 2;
  if (fault_ == Fault::small)
    chunk.size = std::min(chunk.size, static_cast<std::uint32_t>(encodedCapacity(mode_->format, 640, 480)));
  if (fault_ == Fault::corruptedFlag) {
    chunk.flags = SPA_CHUNK_FLAG_CORRUPTED;
    if (header != nullptr) header->flags = SPA_META_HEADER_FLAG_CORRUPTED;
  }
  if (fault_ == Fault::garbage) {
    std::generate_n(static_cast<std::uint8_t*>(data.data), chunk.size,
                    [this] { return static_cast<std::uint8_t>(random_()); });
  }
}

std::size_t encodedCapacity(PixelFormat format, int width, int height) {
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (format == PixelFormat::nv12 || format == PixelFormat::i420) return pixels * 3 / 2;
  return pixels * (format == PixelFormat::mjpeg ? 2U : static_cast<std::size_t>(pixelBytes(format)));
}

int encodedStride(PixelFormat format, int width) {
  if (format == PixelFormat::mjpeg) return 0;
  return width * std::max(pixelBytes(format), 1);
}

std::size_t encodePicture(PixelFormat format, const std::uint8_t* bgra, int width, int height,
                          std::span<std::uint8_t> target) {
  const std::size_t capacity = encodedCapacity(format, width, height);
  if (target.size() < capacity) return 0;
  const int from = width * 4;
  const int stride = encodedStride(format, width);
  std::uint8_t* const to = target.data();
  std::uint8_t* const chroma = to + std::ptrdiff_t{width} * height;
  switch (format) {
    case PixelFormat::yuy2:
      libyuv::ARGBToYUY2(bgra, from, to, stride, width, height);
      break;
    case PixelFormat::nv12:
      libyuv::ARGBToNV12(bgra, from, to, stride, chroma, stride, width, height);
      break;
    case PixelFormat::i420:
      libyuv::ARGBToI420(bgra, from, to, stride, chroma, stride / 2,
                         chroma + std::ptrdiff_t{width} * height / 4, stride / 2, width, height);
      break;
    case PixelFormat::bgrx:
      libyuv::ARGBCopy(bgra, from, to, stride, width, height);
      break;
    case PixelFormat::rgbx:
      libyuv::ARGBToABGR(bgra, from, to, stride, width, height);
      break;
    case PixelFormat::bgr:
      libyuv::ARGBToRGB24(bgra, from, to, stride, width, height);
      break;
    case PixelFormat::rgb:
      libyuv::ARGBToRAW(bgra, from, to, stride, width, height);
      break;
    case PixelFormat::mjpeg:
      return encodeJpeg(bgra, width, height, target);
  }
  return capacity;
}

RawFrame encodedFrame(const VideoFormat& format, std::span<const std::uint8_t> bytes) {
  RawFrame frame;
  frame.format = format;
  const int stride = encodedStride(format.pixels, format.width);
  frame.planes[0] = {bytes.data(), stride, bytes.size()};
  const std::size_t luma = static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height);
  if (format.pixels == PixelFormat::nv12) frame.planes[1] = {bytes.data() + luma, stride, luma / 2};
  if (format.pixels == PixelFormat::i420) {
    frame.planes[1] = {bytes.data() + luma, stride / 2, luma / 4};
    frame.planes[2] = {bytes.data() + luma + luma / 4, stride / 2, luma / 4};
  }
  return frame;
}

}  // namespace sentrel::test
