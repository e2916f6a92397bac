// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/capture_stream.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

/// Mapped shared memory is part of a core dump unless it is said otherwise.
void leaveOutOfCoreDumps(const spa_buffer& buffer) {
  static const auto pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  for (std::uint32_t i = 0; i < buffer.n_datas; ++i) {
    const spa_data& data = buffer.datas[i];
    if (data.data == nullptr || data.maxsize == 0) continue;
    const std::size_t beforePage = reinterpret_cast<std::uintptr_t>(data.data) % pageBytes;
    madvise(static_cast<char*>(data.data) - beforePage, beforePage + data.maxsize, MADV_DONTDUMP);
  }
}

}  // namespace

CaptureError captureErrorFrom(std::string message) {
  std::string lower = message;
  std::ranges::transform(lower, lower.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto says = [&](std::string_view words) { return lower.find(words) != std::string::npos; };
  auto kind = CaptureError::Kind::deviceUnavailable;
  if (says("busy")) {
    kind = CaptureError::Kind::busy;
  } else if (says("permission denied") || says("access denied") || says("not permitted")) {
    kind = CaptureError::Kind::accessDenied;
  }
  return {kind, std::move(message)};
}

NewestFrame::NewestFrame(std::atomic<std::int64_t>& broken, std::function<void(PixelFormat)> arrived)
    : broken_(broken), arrived_(std::move(arrived)) {}

void NewestFrame::begin(pw_stream* stream) {
  const std::lock_guard lock(mutex_);
  stream_ = stream;
  check_ = {};
}

void NewestFrame::end() {
  const std::lock_guard reading(readMutex_);
  const std::lock_guard lock(mutex_);
  stream_ = nullptr;
  format_.reset();
  buffer_ = nullptr;
}

void NewestFrame::setFormat(std::optional<VideoFormat> format) {
  const std::lock_guard lock(mutex_);
  format_ = format;
}

void NewestFrame::remove(pw_buffer* buffer) {
  const std::lock_guard reading(readMutex_);
  const std::lock_guard lock(mutex_);
  if (buffer == buffer_) buffer_ = nullptr;
}

void NewestFrame::receive() {
  if (const auto pixels = dequeue()) arrived_(*pixels);
}

std::optional<PixelFormat> NewestFrame::dequeue() {
  const std::lock_guard lock(mutex_);
  if (stream_ == nullptr) return {};
  std::optional<PixelFormat> newer;
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
    const auto frame = format_ ? check_.check(*buffer->buffer, *format_) : std::nullopt;
    if (!frame) {
      broken_.fetch_add(1, std::memory_order_relaxed);
      pw_stream_queue_buffer(stream_, buffer);
      continue;
    }
    if (buffer_ != nullptr) pw_stream_queue_buffer(stream_, buffer_);
    buffer_ = buffer;
    frame_ = *frame;
    newer = frame_.format.pixels;
  }
  return newer;
}

pw_buffer* NewestFrame::take() {
  const std::lock_guard lock(mutex_);
  taken_ = frame_;
  return std::exchange(buffer_, nullptr);
}

void NewestFrame::recycle(pw_buffer* buffer) {
  const std::lock_guard lock(mutex_);
  pw_stream_queue_buffer(stream_, buffer);
}

struct CaptureStream::Callbacks {
  spa_hook hook{};
  spa_hook dataHook{};

  static CaptureStream& of(void* self) { return *static_cast<CaptureStream*>(self); }

  static constexpr pw_stream_events events{
      .version = PW_VERSION_STREAM_EVENTS,
      .state_changed =
          [](void* self, pw_stream_state, pw_stream_state state, const char* message) {
            if (state == PW_STREAM_STATE_ERROR)
              of(self).fail(captureErrorFrom(message == nullptr ? "" : message));
          },
      .param_changed =
          [](void* self, std::uint32_t id, const spa_pod* parameter) {
            if (id == SPA_PARAM_Format) of(self).formatAgreed(parameter);
          },
      .add_buffer = [](void*, pw_buffer* buffer) { leaveOutOfCoreDumps(*buffer->buffer); },
      .remove_buffer = [](void* self, pw_buffer* buffer) { of(self).newest_.remove(buffer); }};

  static constexpr pw_stream_events dataEvents{
      .version = PW_VERSION_STREAM_EVENTS,
      .process = [](void* newest) { static_cast<NewestFrame*>(newest)->receive(); }};
};

CaptureStream::CaptureStream(pw_context* context, pw_core* remote, std::string nodeSerial, int width,
                             int height, Pixels pixels, NewestFrame& newest, std::function<void()> failed)
    : nodeSerial_(std::move(nodeSerial)),
      wantedWidth_(width),
      wantedHeight_(height),
      wantedPixels_(pixels),
      newest_(newest),
      failed_(std::move(failed)),
      callbacks_(std::make_unique<Callbacks>()) {
  connect(context, remote);
}

CaptureStream::~CaptureStream() {
  newest_.end();
  // Its callbacks stay until the data thread has let go of it: one may be under way there.
  if (stream_ != nullptr) pw_stream_destroy(stream_);
  if (core_ != nullptr) pw_core_disconnect(core_);
}

void CaptureStream::connect(pw_context* context, pw_core* remote) {
  // A connection of its own: the library keeps descriptors that arrive for a stream which was destroyed
  // meanwhile; those that a closed connection has not read yet go with it.
  if (remote == nullptr) core_ = pw_context_connect(context, nullptr, 0);
  pw_core* const core = remote == nullptr ? core_ : remote;
  if (core == nullptr) {
    fail(captureErrorFrom(std::strerror(errno)));
    return;
  }
  // Following another camera than the chosen one is our business, not the session manager's.
  pw_properties* properties =
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                        "Camera", PW_KEY_NODE_NAME, "sentrel", PW_KEY_NODE_DESCRIPTION, "Sentrel",
                        PW_KEY_TARGET_OBJECT, nodeSerial_.c_str(), nullptr);
  stream_ = pw_stream_new(core, "Sentrel", properties);
  if (stream_ == nullptr) {
    fail(captureErrorFrom(std::strerror(errno)));
    return;
  }
  newest_.begin(stream_);
  pw_stream_add_listener(stream_, &callbacks_->hook, &Callbacks::events, this);
  pw_stream_add_listener(stream_, &callbacks_->dataHook, &Callbacks::dataEvents, &newest_);
  auto [storage, parameters] = formatOffer(wantedWidth_, wantedHeight_, wantedPixels_);
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_DONT_RECONNECT | PW_STREAM_FLAG_RT_PROCESS);
  const int result = pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, parameters.data(),
                                       static_cast<std::uint32_t>(parameters.size()));
  if (result < 0) fail(captureErrorFrom(spa_strerror(result)));
}

void CaptureStream::formatAgreed(const void* parameter) {
  newest_.setFormat({});
  if (parameter == nullptr) return;  // the camera is about to leave, or to agree on another one
  const auto format = parseFormat(static_cast<const spa_pod*>(parameter));
  if (!format) {
    pw_stream_set_error(stream_, -EINVAL, "the camera insists on an unknown format");
    return;
  }
  newest_.setFormat(format);
  auto [storage, parameters] = bufferRequest();
  pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void CaptureStream::fail(CaptureError error) {
  if (error_) return;
  error_ = std::move(error);
  failed_();
}

}  // namespace sentrel
