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

struct CaptureStream::Callbacks {
  spa_hook hook{};

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
      .remove_buffer = [](void* self, pw_buffer* buffer) { of(self).bufferRemoved(buffer); },
      .process = [](void* self) { of(self).readBuffers(); }};
};

CaptureStream::CaptureStream(pw_context* context, std::string nodeSerial, int width, int height,
                             BufferLease& lease, std::atomic<std::int64_t>& broken, Events events)
    : nodeSerial_(std::move(nodeSerial)),
      wantedWidth_(width),
      wantedHeight_(height),
      lease_(lease),
      broken_(broken),
      events_(std::move(events)),
      callbacks_(std::make_unique<Callbacks>()) {
  connect(context);
}

CaptureStream::~CaptureStream() {
  lease_.revoke();  // its buffers go with it
  if (stream_ != nullptr) {
    spa_hook_remove(&callbacks_->hook);
    pw_stream_destroy(stream_);
  }
  if (core_ != nullptr) pw_core_disconnect(core_);
}

void CaptureStream::connect(pw_context* context) {
  // A connection of its own: the library keeps descriptors that arrive for a stream which was destroyed
  // meanwhile; those that a closed connection has not read yet go with it.
  core_ = pw_context_connect(context, nullptr, 0);
  if (core_ == nullptr) {
    fail(captureErrorFrom(std::strerror(errno)));
    return;
  }
  // Following another camera than the chosen one is our business, not the session manager's.
  pw_properties* properties =
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                        "Camera", PW_KEY_NODE_NAME, "sentrel", PW_KEY_NODE_DESCRIPTION, "Sentrel",
                        PW_KEY_TARGET_OBJECT, nodeSerial_.c_str(), nullptr);
  stream_ = pw_stream_new(core_, "Sentrel", properties);
  if (stream_ == nullptr) {
    fail(captureErrorFrom(std::strerror(errno)));
    return;
  }
  pw_stream_add_listener(stream_, &callbacks_->hook, &Callbacks::events, this);
  auto [storage, parameters] = formatOffer(wantedWidth_, wantedHeight_);
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_DONT_RECONNECT);
  const int result = pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, parameters.data(),
                                       static_cast<std::uint32_t>(parameters.size()));
  if (result < 0) fail(captureErrorFrom(spa_strerror(result)));
}

void CaptureStream::formatAgreed(const void* parameter) {
  format_.reset();
  if (parameter == nullptr) return;  // the camera is about to leave, or to agree on another one
  format_ = parseFormat(static_cast<const spa_pod*>(parameter));
  if (!format_) {
    pw_stream_set_error(stream_, -EINVAL, "the camera insists on an unknown format");
    return;
  }
  auto [storage, parameters] = bufferRequest();
  pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void CaptureStream::readBuffers() {
  bool newer = false;
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
    const auto frame = format_ ? check_.check(*buffer->buffer, *format_) : std::nullopt;
    if (!frame) {
      broken_.fetch_add(1, std::memory_order_relaxed);
      recycle(buffer);
      continue;
    }
    if (newest_ != nullptr) recycle(newest_);
    newest_ = buffer;
    newestFrame_ = *frame;
    newer = true;
  }
  if (newer) events_.frameArrived();
}

void CaptureStream::bufferRemoved(pw_buffer* buffer) {
  if (buffer == newest_) newest_ = nullptr;
  if (buffer != leased_) return;
  lease_.revoke();
  leased_ = nullptr;
}

void CaptureStream::startLease() {
  leased_ = std::exchange(newest_, nullptr);
  lease_.grant(newestFrame_);
}

void CaptureStream::endLease() {
  if (leased_ != nullptr) recycle(std::exchange(leased_, nullptr));
}

void CaptureStream::recycle(pw_buffer* buffer) {
  pw_stream_queue_buffer(stream_, buffer);
}

void CaptureStream::fail(CaptureError error) {
  if (error_) return;
  error_ = std::move(error);
  events_.failed();
}

}  // namespace sentrel
