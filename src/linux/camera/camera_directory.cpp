// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/camera_directory.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

constexpr std::size_t mostSeen = 64;

std::string property(const spa_dict* properties, const char* key) {
  const char* value = properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
  return value == nullptr ? std::string() : std::string(value);
}

CameraPosition positionFrom(std::string_view location) {
  if (location == "front") return CameraPosition::front;
  if (location == "back") return CameraPosition::back;
  return CameraPosition::unspecified;
}

/// The value of "name" in a JSON object such as {"name":"camera0"}.
std::string nameIn(const char* json) {
  if (json == nullptr) return {};
  spa_json outer{};
  spa_json object{};
  spa_json_init(&outer, json, std::string_view(json).size());
  if (spa_json_enter_object(&outer, &object) <= 0) return {};
  std::array<char, 512> text{};
  while (spa_json_get_string(&object, text.data(), text.size()) > 0) {
    if (std::string_view(text.data()) == "name") {
      return spa_json_get_string(&object, text.data(), text.size()) > 0 ? std::string(text.data())
                                                                        : std::string();
    }
    const char* ignored = nullptr;
    if (spa_json_next(&object, &ignored) <= 0) break;
  }
  return {};
}

}  // namespace

std::optional<CameraDevice> CameraDirectory::Listing::device(const std::string& uniqueID) const {
  const auto found = std::ranges::find(devices, uniqueID, &CameraDevice::uniqueID);
  return found == devices.end() ? std::nullopt : std::optional(*found);
}

std::optional<CameraDevice> CameraDirectory::Listing::choose(
    const std::optional<std::string>& uniqueID) const {
  if (uniqueID) {
    if (auto chosen = device(*uniqueID)) return chosen;
  }
  const auto front = std::ranges::find(devices, CameraPosition::front, &CameraDevice::position);
  if (front != devices.end()) return *front;
  if (auto preferred = device(sessionDefault)) return preferred;
  return devices.empty() ? std::nullopt : std::optional(devices.front());
}

/// One bound Video/Source node; a camera once its properties have arrived and say so.
struct CameraDirectory::Node {
  CameraDirectory* owner;
  std::uint32_t id;
  pw_proxy* proxy;
  spa_hook listener{};
  std::string serial;
  std::optional<CameraDevice> device;
  std::string error;

  Node(CameraDirectory* directory, std::uint32_t nodeID, pw_proxy* bound)
      : owner(directory), id(nodeID), proxy(bound) {
    static constexpr pw_node_events events{
        .version = PW_VERSION_NODE_EVENTS,
        .info = [](void* self, const pw_node_info* info) { static_cast<Node*>(self)->update(info); },
        .param =
            [](void* self, int, std::uint32_t kind, std::uint32_t, std::uint32_t, const spa_pod* parameter) {
              const Node& node = *static_cast<Node*>(self);
              if (kind == SPA_PARAM_EnumFormat && parameter != nullptr && node.device)
                node.owner->events_.formatOffered(node.device->uniqueID, parameter);
            }};
    addNodeListener(proxy, &listener, &events, this);
    if (owner->events_.formatOffered) requestFormats(proxy);  // told after the properties
  }
  ~Node() {
    spa_hook_remove(&listener);
    pw_proxy_destroy(proxy);
  }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  void update(const pw_node_info* info) {
    if ((info->change_mask & PW_NODE_CHANGE_MASK_STATE) != 0) {
      const bool failed = info->state == PW_NODE_STATE_ERROR;
      error = !failed ? "" : info->error == nullptr ? "unknown error" : info->error;
    }
    if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) == 0 || info->props == nullptr) return;
    serial = property(info->props, PW_KEY_OBJECT_SERIAL);
    device.reset();
    CameraDevice found{.uniqueID = property(info->props, PW_KEY_NODE_NAME),
                       .localizedName = property(info->props, PW_KEY_NODE_DESCRIPTION),
                       .position = positionFrom(property(info->props, "api.libcamera.location"))};
    if (found.localizedName.empty()) found.localizedName = property(info->props, PW_KEY_NODE_NICK);
    const bool isCamera = property(info->props, PW_KEY_MEDIA_ROLE) == "Camera" && !found.uniqueID.empty();
    if (isCamera && !serial.empty()) device = std::move(found);
    owner->publish();
  }
};

/// The registry, the session manager's settings object, and the round trips that end the first listing.
struct CameraDirectory::Binding {
  CameraDirectory* owner;
  pw_core* core;
  pw_registry* registry;
  spa_hook registryListener{};
  spa_hook coreListener{};
  pw_proxy* metadata = nullptr;
  std::uint32_t metadataID = SPA_ID_INVALID;
  spa_hook metadataListener{};
  int pendingSync = -1;
  int syncsLeft = 2;  // the first ends the list of objects, the second what binding them brings

  Binding(CameraDirectory* directory, pw_core* connected)
      : owner(directory), core(connected), registry(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0)) {
    static constexpr pw_core_events coreEvents{
        .version = PW_VERSION_CORE_EVENTS,
        .done =
            [](void* self, std::uint32_t id, int sequence) {
              if (id == PW_ID_CORE) static_cast<Binding*>(self)->owner->synced(sequence);
            },
    };
    static constexpr pw_registry_events registryEvents{
        .version = PW_VERSION_REGISTRY_EVENTS,
        .global =
            [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
               const spa_dict* properties) {
              static_cast<Binding*>(self)->owner->globalAdded(id, type, properties);
            },
        .global_remove = [](void* self,
                            std::uint32_t id) { static_cast<Binding*>(self)->owner->globalRemoved(id); },
    };
    addListener(core, &coreListener, &coreEvents, this);
    if (registry != nullptr) addListener(registry, &registryListener, &registryEvents, this);
    sync();
  }
  ~Binding() {
    dropMetadata();
    if (registry != nullptr) {
      spa_hook_remove(&registryListener);
      pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
    spa_hook_remove(&coreListener);
  }
  Binding(const Binding&) = delete;
  Binding& operator=(const Binding&) = delete;

  void sync() { pendingSync = requestSync(core); }

  void bindMetadata(std::uint32_t id) {
    static constexpr pw_metadata_events events{
        .version = PW_VERSION_METADATA_EVENTS,
        .property = [](void* self, std::uint32_t, const char* key, const char*, const char* value) {
          static_cast<Binding*>(self)->setting(key, value);
          return 0;
        }};
    dropMetadata();
    metadata = bindGlobal(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA);
    if (metadata == nullptr) return;
    metadataID = id;
    addMetadataListener(metadata, &metadataListener, &events, this);
  }

  void dropMetadata() {
    if (metadata == nullptr) return;
    spa_hook_remove(&metadataListener);
    pw_proxy_destroy(std::exchange(metadata, nullptr));
    metadataID = SPA_ID_INVALID;
    owner->activeDefault_.clear();
    owner->configuredDefault_.clear();
  }

  /// A missing key clears all settings, a missing value the one named.
  void setting(const char* key, const char* value) const {
    const std::string_view name = key == nullptr ? "" : key;
    const std::string wanted = key == nullptr ? std::string() : nameIn(value);
    if (key == nullptr || name == "default.video.source") owner->activeDefault_ = wanted;
    if (key == nullptr || name == "default.configured.video.source") owner->configuredDefault_ = wanted;
    owner->publish();
  }
};

CameraDirectory::CameraDirectory(Events events) : events_(std::move(events)) {}

CameraDirectory::~CameraDirectory() = default;

void CameraDirectory::attach(pw_core* core) {
  detach();
  binding_ = std::make_unique<Binding>(this, core);
}

void CameraDirectory::detach() {
  nodes_.clear();
  binding_.reset();
  complete_ = false;
  {
    const std::lock_guard lock(mutex_);
    firstOver_ = false;
  }
  publish();
  publishReads(screenLinks_.clear());
}

void CameraDirectory::globalAdded(std::uint32_t id, const char* type, const spa_dict* properties) {
  const std::string_view kind = type == nullptr ? "" : type;
  publishReads(screenLinks_.add(id, kind, properties));
  if (kind == PW_TYPE_INTERFACE_Metadata && property(properties, PW_KEY_METADATA_NAME) == "default") {
    binding_->bindMetadata(id);
  } else if (kind == PW_TYPE_INTERFACE_Node && property(properties, PW_KEY_MEDIA_CLASS) == "Video/Source") {
    pw_proxy* proxy = bindGlobal(binding_->registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE);
    if (proxy != nullptr) nodes_.push_back(std::make_unique<Node>(this, id, proxy));
  }
}

void CameraDirectory::globalRemoved(std::uint32_t id) {
  publishReads(screenLinks_.remove(id));
  const bool wasMetadata = id == binding_->metadataID;
  if (wasMetadata) binding_->dropMetadata();
  const auto gone = std::erase_if(nodes_, [id](const auto& node) { return node->id == id; });
  if (wasMetadata || gone > 0) publish();
}

void CameraDirectory::synced(int sequence) {
  if (!binding_ || sequence != binding_->pendingSync || complete_) return;
  if (--binding_->syncsLeft > 0) {
    binding_->sync();
    return;
  }
  complete_ = true;
  publish();
  events_.completed();
}

std::string CameraDirectory::serialOf(const std::string& uniqueID) const {
  const auto newest = std::find_if(nodes_.rbegin(), nodes_.rend(), [&](const auto& node) {
    return node->device && node->device->uniqueID == uniqueID;
  });
  return newest == nodes_.rend() ? std::string() : (*newest)->serial;
}

bool CameraDirectory::hasSerial(const std::string& serial) const {
  return std::ranges::any_of(nodes_,
                             [&](const auto& node) { return node->device && node->serial == serial; });
}

std::string CameraDirectory::errorOf(const std::string& serial) const {
  const auto node = std::ranges::find(nodes_, serial, &Node::serial);
  return node == nodes_.end() ? std::string() : (*node)->error;
}

void CameraDirectory::publish() {
  publishUsers();
  Listing listing;
  for (const auto& node : nodes_) {
    if (!node->device) continue;
    std::erase_if(listing.devices,
                  [&](const auto& earlier) { return earlier.uniqueID == node->device->uniqueID; });
    listing.devices.push_back(*node->device);
  }
  listing.sessionDefault = activeDefault_.empty() ? configuredDefault_ : activeDefault_;
  bool differs = false;
  {
    const std::lock_guard lock(mutex_);
    differs = listing != listing_;
    listing_ = std::move(listing);
    for (const auto& device : listing_.devices) {
      std::erase(seen_, device.uniqueID);
      seen_.push_back(device.uniqueID);
    }
    // Whoever may make nodes could fill the memory with names.
    while (seen_.size() > mostSeen) seen_.pop_front();
    if (complete_ && !seen_.empty()) firstOver_ = true;
  }
  arrived_.notify_all();
  if (differs) events_.devicesChanged();
}

/// Who uses each camera, beside this process.
void CameraDirectory::publishUsers() {
  std::map<std::string, std::string> users;
  for (const auto& node : nodes_) {
    if (!node->device) continue;
    std::string user = screenLinks_.otherReaderOf(node->id);
    if (!user.empty()) users[node->device->uniqueID] = std::move(user);
  }
  const std::lock_guard lock(mutex_);
  users_ = std::move(users);
}

void CameraDirectory::publishReads(bool changed) {
  publishUsers();
  if (!changed) return;
  {
    const std::lock_guard lock(mutex_);
    screenReads_ = screenLinks_.reads();
  }
  events_.screenReadsChanged();
}

CameraDirectory::Listing CameraDirectory::listing() const {
  const std::lock_guard lock(mutex_);
  return listing_;
}

std::vector<ScreenRead> CameraDirectory::screenReads() const {
  const std::lock_guard lock(mutex_);
  return screenReads_;
}

std::string CameraDirectory::otherUserOf(const std::string& uniqueID) const {
  const std::lock_guard lock(mutex_);
  const auto found = users_.find(uniqueID);
  return found == users_.end() ? std::string() : found->second;
}

bool CameraDirectory::hasSeen(const std::string& uniqueID) const {
  const std::lock_guard lock(mutex_);
  return std::ranges::find(seen_, uniqueID) != seen_.end();
}

bool CameraDirectory::awaitFirst(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  arrived_.wait_for(lock, timeout, [this] { return firstOver_; });
  firstOver_ = true;
  return !seen_.empty();
}

}  // namespace sentrel
