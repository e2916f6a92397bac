// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/camera_survey.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <semaphore>
#include <span>

#include "linux/camera/camera_directory.h"
#include "linux/camera/pipewire_headers.h"
#include "linux/camera/pipewire_loop.h"

namespace sentrel {

namespace {

constexpr std::size_t mostFormats = 64;  // of a camera

/// One value, or all that there is to choose from, the usual one first; of another type than `T` none.
template <class T>
struct Values {
  std::span<const T> all{};
  bool isRange = false;  ///< the second and the third are the least and the most
};

template <class T>
Values<T> valuesOf(const spa_pod* format, std::uint32_t key, std::uint32_t type) {
  const spa_pod_prop* found = spa_pod_find_prop(format, nullptr, key);
  if (found == nullptr) return {};
  std::uint32_t count = 0;
  std::uint32_t choice = 0;
  const spa_pod* values = spa_pod_get_values(&found->value, &count, &choice);
  if (values == nullptr || values->type != type || values->size < sizeof(T)) return {};
  return {{static_cast<const T*>(SPA_POD_BODY_CONST(values)), count},
          choice == SPA_CHOICE_Range && count == 3};
}

/// "YUY2", "MJPG".
std::string encodingOf(const spa_pod* format) {
  std::uint32_t media = 0;
  std::uint32_t kind = 0;
  if (spa_format_parse(format, &media, &kind) < 0 || media != SPA_MEDIA_TYPE_video) return {};
  const spa_type_info* names = spa_type_media_subtype;
  if (kind == SPA_MEDIA_SUBTYPE_raw) {
    const auto pixels = valuesOf<std::uint32_t>(format, SPA_FORMAT_VIDEO_format, SPA_TYPE_Id);
    if (pixels.all.empty()) return "raw";
    kind = pixels.all.front();
    names = spa_type_video_format;
  }
  const char* name = spa_debug_type_find_short_name(names, kind);
  std::string words = name == nullptr ? std::to_string(kind) : name;
  std::ranges::transform(words, words.begin(), [](unsigned char c) { return std::toupper(c); });
  return words;
}

std::string text(const spa_rectangle& size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// "640x480@30", and of a camera that takes any size "16x16-8192x8192".
std::string sizeAndRate(const spa_pod* format) {
  const auto sizes = valuesOf<spa_rectangle>(format, SPA_FORMAT_VIDEO_size, SPA_TYPE_Rectangle);
  std::string words = "?";
  if (!sizes.all.empty())
    words = sizes.isRange ? text(sizes.all[1]) + "-" + text(sizes.all[2]) : text(sizes.all[0]);
  double best = 0;
  for (const spa_fraction& rate :
       valuesOf<spa_fraction>(format, SPA_FORMAT_VIDEO_framerate, SPA_TYPE_Fraction).all)
    if (rate.denom != 0) best = std::max(best, static_cast<double>(rate.num) / rate.denom);
  if (best > 0) words.append("@").append(std::to_string(std::lround(best)));
  return words;
}

/// What one camera offers, put together from what it tells.
struct Offer {
  CameraSurvey::Formats formats;
  std::size_t told = 0;

  void add(const spa_pod* format) {
    const std::string encoding = encodingOf(format);
    if (encoding.empty() || ++told > mostFormats) return;
    const auto known = std::ranges::find_if(
        formats, [&](const std::string& words) { return words.starts_with(encoding + " "); });
    if (known == formats.end()) {
      formats.push_back(encoding + " " + sizeAndRate(format));
    } else {
      known->append(", ").append(sizeAndRate(format));
    }
  }
};

}  // namespace

std::optional<CameraSurvey> surveyCameras(std::chrono::milliseconds limit) {
  CameraSurvey survey;
  bool isComplete = false;
  std::map<std::string, Offer> offers;  // by the unique id of the camera
  std::counting_semaphore<> answered(0);
  PipeWireLoop loop("sentrel-survey");
  CameraDirectory directory(
      {.devicesChanged = [] {},
       .completed =
           [&] {
             for (const CameraDevice& device : directory.listing().devices)
               if (survey.cameras.size() < CameraSurvey::mostCameras)
                 survey.cameras.push_back({device.localizedName, offers[device.uniqueID].formats});
             isComplete = true;
             answered.release();
           },
       .screenReadsChanged = [] {},
       .formatOffered = [&](const std::string& uniqueID,
                            const spa_pod* format) { offers[uniqueID].add(format); }});
  static constexpr pw_core_events events{
      .version = PW_VERSION_CORE_EVENTS, .info = [](void* told, const pw_core_info* info) {
        static_cast<CameraSurvey*>(told)->version = info->version == nullptr ? "?" : info->version;
      }};
  spa_hook listener{};
  const auto connected = [&](pw_core* core) {
    addListener(core, &listener, &events, &survey);
    directory.attach(core);
  };
  const auto lost = [&] {
    directory.detach();
    spa_hook_remove(&listener);
  };
  const auto absent = [&] { answered.release(); };
  PipeWireConnection connection(loop, {.connected = connected, .lost = lost, .absent = absent});
  connection.open();
  loop.start();
  static_cast<void>(answered.try_acquire_for(limit));
  loop.call([&] { connection.close(); });
  loop.stop();
  return isComplete ? std::optional(survey) : std::nullopt;
}

std::string pipeWireVersion() {
  return pw_get_library_version();
}

}  // namespace sentrel
