// SPDX-License-Identifier: Apache-2.0
#pragma once

// Every PipeWire header that is used, in one place: they are C headers whose inline functions and macros do
// not pass this project's warnings.
#if defined(__GNUC__)
#pragma GCC system_header
// Tables of callbacks name those that are wanted.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif

#include <cstdint>

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/debug/types.h>
#include <spa/param/buffers.h>
#include <spa/param/format-utils.h>
#include <spa/param/param.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>
#include <spa/pod/builder.h>
#include <spa/utils/hook.h>
#include <spa/utils/json.h>
#include <spa/utils/result.h>

// Method calls that PipeWire offers as macros.
namespace sentrel {

inline void addListener(pw_core* core, spa_hook* hook, const pw_core_events* events, void* data) {
  pw_core_add_listener(core, hook, events, data);
}
inline void addListener(pw_registry* registry, spa_hook* hook, const pw_registry_events* events, void* data) {
  pw_registry_add_listener(registry, hook, events, data);
}
inline void addNodeListener(pw_proxy* node, spa_hook* hook, const pw_node_events* events, void* data) {
  pw_node_add_listener(reinterpret_cast<pw_node*>(node), hook, events, data);
}
inline void addMetadataListener(pw_proxy* metadata, spa_hook* hook, const pw_metadata_events* events,
                                void* data) {
  pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(metadata), hook, events, data);
}
/// Each is told as an event of the node.
inline void requestFormats(pw_proxy* node) {
  pw_node_enum_params(reinterpret_cast<pw_node*>(node), 0, SPA_PARAM_EnumFormat, 0, UINT32_MAX, nullptr);
}
/// Returns the number that the answer will bear.
inline int requestSync(pw_core* core) {
  return pw_core_sync(core, PW_ID_CORE, 0);
}
inline pw_proxy* bindGlobal(pw_registry* registry, std::uint32_t id, const char* type,
                            std::uint32_t version) {
  return static_cast<pw_proxy*>(pw_registry_bind(registry, id, type, version, 0));
}

}  // namespace sentrel
