// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/camera_survey.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

constexpr std::size_t mostFormats = 64;  // of a camera

struct LoopDeleter {
  void operator()(pw_main_loop* loop) const { pw_main_loop_destroy(loop); }
  void operator()(pw_context* context) const { pw_context_destroy(context); }
};

std::string_view property(const spa_dict* properties, const char* key) {
  const char* value = properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
  return value == nullptr ? std::string_view() : value;
}

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
  if (best > 0) words.append("@").append(std::to_string(static_cast<int>(best + 0.5)));
  return words;
}

/// One walk through what the service lists, on a loop of its own.
class Survey {
 public:
  Survey() = default;
  Survey(const Survey&) = delete;
  Survey& operator=(const Survey&) = delete;
  ~Survey() {
    for (const auto& node : nodes_) {
      spa_hook_remove(&node->listener);
      pw_proxy_destroy(node->proxy);
    }
    if (registry_ != nullptr) {
      spa_hook_remove(&registryListener_);
      pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    }
    if (core_ == nullptr) return;
    spa_hook_remove(&coreListener_);
    pw_core_disconnect(core_);
  }

  [[nodiscard]] std::optional<CameraSurvey> run(std::chrono::milliseconds limit) {
    if (!connect()) return std::nullopt;
    spa_source* timer = pw_loop_add_timer(
        pw_main_loop_get_loop(loop_.get()),
        [](void* self, std::uint64_t) { pw_main_loop_quit(static_cast<Survey*>(self)->loop_.get()); }, this);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    timespec value{};
    value.tv_sec = seconds.count();
    value.tv_nsec = std::chrono::nanoseconds(limit - seconds).count();
    pw_loop_update_timer(pw_main_loop_get_loop(loop_.get()), timer, &value, nullptr, false);
    pw_main_loop_run(loop_.get());
    pw_loop_destroy_source(pw_main_loop_get_loop(loop_.get()), timer);
    if (result_.version.empty()) return std::nullopt;
    for (const auto& node : nodes_) result_.cameras.push_back(node->camera);
    return std::move(result_);
  }

 private:
  struct Node {
    pw_proxy* proxy;
    spa_hook listener{};
    CameraSurvey::Camera camera{};
    std::size_t formats = 0;

    void add(const spa_pod* format) {
      const std::string encoding = format == nullptr ? std::string() : encodingOf(format);
      if (encoding.empty() || ++formats > mostFormats) return;
      const auto known = std::ranges::find_if(
          camera.formats, [&](const std::string& words) { return words.starts_with(encoding + " "); });
      if (known == camera.formats.end()) {
        camera.formats.push_back(encoding + " " + sizeAndRate(format));
      } else {
        known->append(", ").append(sizeAndRate(format));
      }
    }
  };

  bool connect() {
    pw_init(nullptr, nullptr);
    loop_.reset(pw_main_loop_new(nullptr));
    if (!loop_) return false;
    context_.reset(pw_context_new(pw_main_loop_get_loop(loop_.get()),
                                  pw_properties_new("module.rt", "false", nullptr), 0));
    core_ = context_ ? pw_context_connect(context_.get(), nullptr, 0) : nullptr;
    if (core_ == nullptr) return false;
    static constexpr pw_core_events coreEvents{
        .version = PW_VERSION_CORE_EVENTS,
        .info =
            [](void* self, const pw_core_info* info) {
              static_cast<Survey*>(self)->result_.version = info->version == nullptr ? "?" : info->version;
            },
        .done = [](void* self, std::uint32_t, int sequence) { static_cast<Survey*>(self)->synced(sequence); },
        .error =
            [](void* self, std::uint32_t id, int, int, const char*) {
              if (id == PW_ID_CORE) pw_main_loop_quit(static_cast<Survey*>(self)->loop_.get());
            },
    };
    static constexpr pw_registry_events registryEvents{
        .version = PW_VERSION_REGISTRY_EVENTS,
        .global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                     const spa_dict* properties) { static_cast<Survey*>(self)->found(id, type, properties); },
    };
    addListener(core_, &coreListener_, &coreEvents, this);
    registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
    if (registry_ == nullptr) return false;
    addListener(registry_, &registryListener_, &registryEvents, this);
    sequence_ = requestSync(core_);
    return true;
  }

  void found(std::uint32_t id, const char* type, const spa_dict* properties) {
    if (std::string_view(type == nullptr ? "" : type) != PW_TYPE_INTERFACE_Node ||
        property(properties, PW_KEY_MEDIA_CLASS) != "Video/Source" ||
        property(properties, PW_KEY_MEDIA_ROLE) != "Camera" || nodes_.size() == CameraSurvey::mostCameras)
      return;
    pw_proxy* proxy = bindGlobal(registry_, id, type, PW_VERSION_NODE);
    if (proxy == nullptr) return;
    static constexpr pw_node_events events{.version = PW_VERSION_NODE_EVENTS,
                                           .param = [](void* self, int, std::uint32_t kind, std::uint32_t,
                                                       std::uint32_t, const spa_pod* format) {
                                             if (kind == SPA_PARAM_EnumFormat)
                                               static_cast<Node*>(self)->add(format);
                                           }};
    auto node = std::make_unique<Node>(Node{proxy});
    node->camera.name = property(properties, PW_KEY_NODE_DESCRIPTION);
    if (node->camera.name.empty()) node->camera.name = property(properties, PW_KEY_NODE_NICK);
    addNodeListener(proxy, &node->listener, &events, node.get());
    requestFormats(proxy);
    nodes_.push_back(std::move(node));
  }

  /// The first ends the list of objects, the second what was asked of them.
  void synced(int sequence) {
    if (sequence != sequence_) return;
    if (std::exchange(isListed_, true)) {
      pw_main_loop_quit(loop_.get());
    } else {
      sequence_ = requestSync(core_);
    }
  }

  std::unique_ptr<pw_main_loop, LoopDeleter> loop_;
  std::unique_ptr<pw_context, LoopDeleter> context_;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  std::vector<std::unique_ptr<Node>> nodes_;
  CameraSurvey result_;
  int sequence_ = -1;
  bool isListed_ = false;
};

}  // namespace

std::optional<CameraSurvey> surveyCameras(std::chrono::milliseconds limit) {
  return Survey().run(limit);
}

std::string pipeWireVersion() {
  return pw_get_library_version();
}

}  // namespace sentrel
