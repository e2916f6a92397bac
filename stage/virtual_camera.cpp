// SPDX-License-Identifier: Apache-2.0
#include "stage/virtual_camera.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <utility>

#include "linux/camera/pipewire_headers.h"
#include "linux/camera/pipewire_loop.h"
#include "stage/picture_encoder.h"

namespace sentrel::test {

namespace {

using Clock = std::chrono::steady_clock;
using Format = VirtualCamera::Format;
using Mode = VirtualCamera::Mode;

spa_rectangle sizeOf(const Mode& mode) {
  return {static_cast<std::uint32_t>(mode.width), static_cast<std::uint32_t>(mode.height)};
}

std::uint32_t pixelsOf(const Mode& mode) {
  switch (mode.format) {
    case Format::yuy2:
      return SPA_VIDEO_FORMAT_YUY2;
    case Format::nv12:
      return SPA_VIDEO_FORMAT_NV12;
    case Format::i420:
      return SPA_VIDEO_FORMAT_I420;
    case Format::mjpeg:
      break;
  }
  return SPA_VIDEO_FORMAT_ENCODED;
}

const spa_pod* formatOf(const Mode& mode, spa_pod_builder& builder) {
  const spa_rectangle size = sizeOf(mode);
  const spa_fraction rate{static_cast<std::uint32_t>(mode.fps), 1};
  const bool encoded = mode.format == Format::mjpeg;
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(encoded ? SPA_MEDIA_SUBTYPE_mjpg : SPA_MEDIA_SUBTYPE_raw), 0);
  if (!encoded) spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(pixelsOf(mode)), 0);
  spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_Fraction(&rate), 0);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

bool describes(const spa_pod* format, const Mode& mode) {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
  if (spa_format_parse(format, &type, &subtype) < 0) return false;
  spa_video_info_raw raw{};
  raw.format = SPA_VIDEO_FORMAT_ENCODED;
  if (subtype == SPA_MEDIA_SUBTYPE_mjpg) {
    spa_video_info_mjpg encoded{};
    if (spa_format_video_mjpg_parse(format, &encoded) < 0) return false;
    raw.size = encoded.size;
    raw.framerate = encoded.framerate;
  } else if (spa_format_video_raw_parse(format, &raw) < 0) {
    return false;
  }
  const spa_rectangle size = sizeOf(mode);
  return raw.format == pixelsOf(mode) && raw.size.width == size.width && raw.size.height == size.height &&
         raw.framerate.num == static_cast<std::uint32_t>(mode.fps) * raw.framerate.denom;
}

}  // namespace

/// Everything below the constructor runs on the camera's PipeWire thread, or under its lock.
class VirtualCamera::Machine {
 public:
  explicit Machine(Options options)
      : options_(std::move(options)),
        modes_{{options_.format, options_.width, options_.height, options_.fps}},
        loop_("virtual-camera"),
        timer_(loop_, [this] { present(); }) {
    modes_.insert(modes_.end(), options_.otherModes.begin(), options_.otherModes.end());
    loop_.start();
  }
  ~Machine() {
    vanish();
    loop_.stop();
    if (context_ != nullptr) pw_context_destroy(context_);
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  void appear();
  void vanish();

  template <class Change>
  auto locked(Change&& change) {
    const PipeWireLoop::Lock lock(loop_);
    return change(*this);
  }

  Source source;
  std::optional<Clock::time_point> sourceBegan;
  bool playing = true;
  Fault fault = Fault::none;
  bool open = false;
  std::optional<Mode> agreed;
  std::vector<Presented> log;

 private:
  void connectStream();
  void stateChanged(pw_stream_state state, const char* message);
  void agree(const spa_pod* format);
  void present();
  void fill(spa_buffer& buffer, Clock::time_point now);
  void spoil(spa_data& data, spa_meta_header* header);
  void scheduleNext();
  [[nodiscard]] std::int64_t frameIndexAt(Clock::time_point moment) const;

  static const pw_stream_events* events();

  const Options options_;
  std::vector<Mode> modes_;
  Mode mode_;  // while somebody has it open, the agreed one
  std::vector<std::uint8_t> grey_;
  PipeWireLoop loop_;
  LoopTimer timer_;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_stream* stream_ = nullptr;
  spa_hook hook_{};
  bool listed_ = false;
  std::string error_;
  Clock::time_point streamingSince_;
  std::int64_t nextPeriod_ = 0;
  std::int64_t backwardsNs_ = 0;
  std::minstd_rand random_{20};
};

const pw_stream_events* VirtualCamera::Machine::events() {
  static const pw_stream_events table = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char* message) {
      static_cast<Machine*>(self)->stateChanged(state, message);
    };
    events.param_changed = [](void* self, std::uint32_t id, const spa_pod* parameter) {
      if (id == SPA_PARAM_Format && parameter != nullptr) static_cast<Machine*>(self)->agree(parameter);
    };
    return events;
  }();
  return &table;
}

void VirtualCamera::Machine::appear() {
  loop_.call([this] {
    if (stream_ != nullptr) return;
    error_.clear();
    connectStream();
  });
  // The loop is left to run between the looks.
  for (const auto end = Clock::now() + std::chrono::seconds(10);;) {
    {
      const PipeWireLoop::Lock lock(loop_);
      if (listed_) return;
      if (!error_.empty() || Clock::now() >= end) {
        throw std::runtime_error("the virtual camera cannot appear: " + error_);
      }
    }
    const timespec moment{0, 2'000'000};
    nanosleep(&moment, nullptr);
  }
}

void VirtualCamera::Machine::vanish() {
  loop_.call([this] {
    timer_.disarm();
    open = listed_ = false;
    if (stream_ != nullptr) {
      spa_hook_remove(&hook_);
      pw_stream_destroy(std::exchange(stream_, nullptr));
    }
    if (core_ != nullptr) pw_core_disconnect(std::exchange(core_, nullptr));
  });
}

void VirtualCamera::Machine::connectStream() {
  if (context_ == nullptr) context_ = pw_context_new(loop_.get(), nullptr, 0);
  if (context_ != nullptr) core_ = pw_context_connect(context_, nullptr, 0);
  if (core_ == nullptr) {
    error_ = "there is no PipeWire daemon";
    return;
  }

  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_NAME,
      options_.name.c_str(), PW_KEY_NODE_DESCRIPTION, options_.description.c_str(), nullptr);
  if (!options_.location.empty()) {
    pw_properties_set(properties, "api.libcamera.location", options_.location.c_str());
  }
  stream_ = pw_stream_new(core_, options_.name.c_str(), properties);
  pw_stream_add_listener(stream_, &hook_, events(), this);

  std::vector<std::uint8_t> storage(512 * modes_.size());
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  std::vector<const spa_pod*> parameters;
  for (const Mode& mode : modes_) parameters.push_back(formatOf(mode, builder));
  // A camera decides when there is a picture, so it drives those who watch it.
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS);
  if (pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, parameters.data(),
                        static_cast<std::uint32_t>(parameters.size())) < 0) {
    error_ = "it cannot connect";
  }
}

void VirtualCamera::Machine::stateChanged(pw_stream_state state, const char* message) {
  listed_ = state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING;
  open = state == PW_STREAM_STATE_STREAMING;
  if (state == PW_STREAM_STATE_ERROR) error_ = message == nullptr ? "unknown error" : message;
  if (!open) {
    timer_.disarm();
    return;
  }
  streamingSince_ = Clock::now();
  nextPeriod_ = 0;
  scheduleNext();
}

void VirtualCamera::Machine::agree(const spa_pod* format) {
  const auto found = std::ranges::find_if(modes_, [&](const Mode& mode) { return describes(format, mode); });
  if (found == modes_.end()) {
    pw_stream_set_error(stream_, -EINVAL, "not one of the camera's modes");
    return;
  }
  mode_ = *found;
  agreed = mode_;
  grey_.assign(static_cast<std::size_t>(mode_.width) * static_cast<std::size_t>(mode_.height) * 4, 128);
  std::array<std::uint8_t, 512> storage{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  const auto bytes = static_cast<int>(encodedCapacity(mode_.format, mode_.width, mode_.height));
  const std::array<const spa_pod*, 2> parameters{
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
          SPA_POD_CHOICE_RANGE_Int(8, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
          SPA_PARAM_BUFFERS_size, SPA_POD_Int(bytes), SPA_PARAM_BUFFERS_stride,
          SPA_POD_Int(encodedStride(mode_.format, mode_.width)))),
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
          SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))))};
  pw_stream_update_params(stream_, const_cast<const spa_pod**>(parameters.data()),
                          static_cast<std::uint32_t>(parameters.size()));
}

std::int64_t VirtualCamera::Machine::frameIndexAt(Clock::time_point moment) const {
  const std::chrono::duration<double> since = moment - sourceBegan.value_or(moment);
  return std::llround(since.count() * mode_.fps);
}

void VirtualCamera::Machine::scheduleNext() {
  const std::chrono::duration<double> period(1.0 / mode_.fps);
  auto due = streamingSince_ +
             std::chrono::duration_cast<Clock::duration>(period * static_cast<double>(nextPeriod_++));
  if (options_.jitterMs > 0) {
    due += std::chrono::milliseconds(
        std::uniform_int_distribution<int>(-options_.jitterMs, options_.jitterMs)(random_));
  }
  timer_.arm(due);
}

void VirtualCamera::Machine::present() {
  if (stream_ == nullptr || !open) return;
  if (playing) {
    if (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
      fill(*buffer->buffer, Clock::now());
      pw_stream_queue_buffer(stream_, buffer);
    }
    // Also without a buffer: the turn of the graph is what brings used ones back.
    pw_stream_trigger_process(stream_);
  }
  scheduleNext();
}

void VirtualCamera::Machine::fill(spa_buffer& buffer, Clock::time_point now) {
  spa_data& data = buffer.datas[0];
  if (data.data == nullptr) return;
  if (!sourceBegan) sourceBegan = now;
  const std::int64_t index = frameIndexAt(now);
  const std::uint8_t* pixels = source ? source(index) : grey_.data();
  const std::size_t size = encodePicture(mode_.format, pixels, mode_.width, mode_.height,
                                         std::span(static_cast<std::uint8_t*>(data.data), data.maxsize));
  *data.chunk = {.offset = 0,
                 .size = static_cast<std::uint32_t>(size),
                 .stride = encodedStride(mode_.format, mode_.width),
                 .flags = SPA_CHUNK_FLAG_NONE};
  auto* const header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header != nullptr) {
    *header = {};
    header->pts = now.time_since_epoch().count();
    header->seq = static_cast<std::uint64_t>(index);
  }
  spoil(data, header);
  log.push_back({index, now});
}

void VirtualCamera::Machine::spoil(spa_data& data, spa_meta_header* header) {
  spa_chunk& chunk = *data.chunk;
  switch (fault) {
    case Fault::none:
      break;
    case Fault::zeroLength:
      chunk.size = 0;
      break;
    case Fault::shortChunk:
      chunk.size /= 2;
      break;
    case Fault::wrongStride:
      chunk.stride = chunk.stride / 2 + 1;
      break;
    case Fault::otherSize:
      chunk.stride /= 2;
      chunk.size /= 4;
      break;
    case Fault::offsetBeyond:
      chunk.offset = data.maxsize - 16;
      break;
    case Fault::corruptedFlag:
      chunk.flags = SPA_CHUNK_FLAG_CORRUPTED;
      if (header != nullptr) header->flags = SPA_META_HEADER_FLAG_CORRUPTED;
      break;
    case Fault::garbage:
      std::generate_n(static_cast<std::uint8_t*>(data.data), chunk.size,
                      [this] { return static_cast<std::uint8_t>(random_()); });
      break;
    case Fault::backwardsTimestamps:
      if (backwardsNs_ <= 0) backwardsNs_ = std::int64_t{1} << 60;
      backwardsNs_ -= 33'000'000;
      if (header != nullptr) header->pts = backwardsNs_;
      break;
  }
}

VirtualCamera::VirtualCamera(Options options) : machine_(std::make_unique<Machine>(std::move(options))) {}
VirtualCamera::~VirtualCamera() = default;

void VirtualCamera::appear() {
  machine_->appear();
}

void VirtualCamera::vanish() {
  machine_->vanish();
}

void VirtualCamera::setSource(Source source) {
  machine_->locked([&](Machine& machine) {
    machine.source = std::move(source);
    machine.sourceBegan.reset();
  });
}

void VirtualCamera::setPlaying(bool playing) {
  machine_->locked([&](Machine& machine) { machine.playing = playing; });
}

void VirtualCamera::setFault(Fault fault) {
  machine_->locked([&](Machine& machine) { machine.fault = fault; });
}

bool VirtualCamera::isOpen() const {
  return machine_->locked([](const Machine& machine) { return machine.open; });
}

std::optional<VirtualCamera::Mode> VirtualCamera::agreedMode() const {
  return machine_->locked([](const Machine& machine) { return machine.agreed; });
}

std::vector<VirtualCamera::Presented> VirtualCamera::presented() const {
  return machine_->locked([](const Machine& machine) { return machine.log; });
}

void VirtualCamera::clearLog() {
  machine_->locked([](Machine& machine) { machine.log.clear(); });
}

}  // namespace sentrel::test
