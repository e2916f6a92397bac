// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/screen_links.h"

#include <unistd.h>

#include <charconv>
#include <optional>
#include <set>
#include <utility>

#include "linux/camera/pipewire_headers.h"
#include "platform/capture_session.h"

namespace sentrel {

namespace {

std::string_view property(const spa_dict* properties, const char* key) {
  const char* value = properties == nullptr ? nullptr : spa_dict_lookup(properties, key);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

template <class Number>
std::optional<Number> numberIn(const spa_dict* properties, const char* key) {
  const std::string_view text = property(properties, key);
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// What the maker of a client or a node calls itself, or else the node.
std::string nameIn(const spa_dict* properties) {
  for (const char* key : {PW_KEY_APP_NAME, PW_KEY_NODE_DESCRIPTION, PW_KEY_NODE_NAME}) {
    const std::string_view name = property(properties, key);
    if (!name.empty()) return std::string(name.substr(0, CaptureSession::longestUserName));
  }
  return {};
}

template <class Object>
void insert(std::map<std::uint32_t, Object>& objects, std::uint32_t id, Object object) {
  if (objects.size() < ScreenLinks::mostObjects) objects.emplace(id, std::move(object));
}

}  // namespace

bool ScreenLinks::add(std::uint32_t id, std::string_view type, const spa_dict* properties) {
  forget(id);
  const auto id32 = [properties](const char* key) { return numberIn<std::uint32_t>(properties, key); };
  const auto serial = numberIn<std::uint64_t>(properties, PW_KEY_OBJECT_SERIAL);
  if (type == PW_TYPE_INTERFACE_Client) {
    const auto pid = numberIn<pid_t>(properties, PW_KEY_SEC_PID);
    if (serial && pid && *pid > 0) insert(clients_, id, {*serial, *pid, nameIn(properties)});
  } else if (type == PW_TYPE_INTERFACE_Node) {
    const std::string_view kind = property(properties, PW_KEY_MEDIA_CLASS);
    const bool isCamera = property(properties, PW_KEY_MEDIA_ROLE) == "Camera";
    const bool givesPictures = kind == "Video/Source" || kind == "Stream/Output/Video";
    const bool isSound = kind.find("Audio") != kind.npos || kind.find("Midi") != kind.npos;
    const auto client = id32(PW_KEY_CLIENT_ID);
    if (serial && client && !isSound) {
      insert(nodes_, id,
             {*serial, *client, givesPictures && !isCamera, givesPictures && isCamera, nameIn(properties)});
    }
  } else if (type == PW_TYPE_INTERFACE_Link) {
    const auto output = id32(PW_KEY_LINK_OUTPUT_NODE);
    const auto input = id32(PW_KEY_LINK_INPUT_NODE);
    // A link is told after its nodes.
    const auto node = output ? nodes_.find(*output) : nodes_.end();
    if (input && node != nodes_.end() && (node->second.givesPictures || node->second.isCamera))
      insert(links_, id, {*output, *input});
  }
  return update();
}

bool ScreenLinks::remove(std::uint32_t id) {
  forget(id);
  return update();
}

bool ScreenLinks::clear() {
  clients_.clear();
  nodes_.clear();
  links_.clear();
  return update();
}

void ScreenLinks::forget(std::uint32_t id) {
  clients_.erase(id);
  nodes_.erase(id);
  links_.erase(id);
}

bool ScreenLinks::update() {
  std::set<ScreenRead> found;
  for (const auto& [id, link] : links_) {
    const auto output = nodes_.find(link.output);
    if (output == nodes_.end() || !output->second.givesPictures) continue;
    const ScreenRead read{makerOf(link.output), makerOf(link.input)};
    if (read.maker != 0 && read.reader != 0) found.insert(read);
  }
  std::vector<ScreenRead> reads(found.begin(), found.end());
  return std::exchange(reads_, std::move(reads)) != reads_;
}

std::string ScreenLinks::otherReaderOf(std::uint32_t camera) const {
  for (const auto& [id, link] : links_) {
    const auto reader = nodes_.find(link.input);
    if (link.output != camera || reader == nodes_.end()) continue;
    const pid_t maker = makerOf(link.input);
    if (maker == getpid()) continue;
    // A program is better known than its streams.
    const std::string& name = maker != 0 ? clients_.at(reader->second.client).name : reader->second.name;
    if (!name.empty() || !reader->second.name.empty()) return name.empty() ? reader->second.name : name;
  }
  return {};
}

pid_t ScreenLinks::makerOf(std::uint32_t node) const {
  const auto made = nodes_.find(node);
  if (made == nodes_.end()) return 0;
  const auto client = clients_.find(made->second.client);
  // Ids are used again, and a node may outlive whoever made it: then a later client bears the id.
  const bool isMaker = client != clients_.end() && client->second.serial < made->second.serial;
  return isMaker ? client->second.pid : 0;
}

}  // namespace sentrel
