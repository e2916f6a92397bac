// SPDX-License-Identifier: Apache-2.0
//
// Preloaded into a compositor that draws with a graphics card only: a card for machines without one. Its
// buffers are ordinary memory, and Mesa's software renderer draws into them, as it does on a virtual card of
// the kernel's. Only the process it is loaded into has it, none that this one starts. Lets root run
// a compositor that asks to be anybody else, too.
#include <dlfcn.h>
#include <fcntl.h>
#include <libdrm/drm.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace {

constexpr const char* node = "/dev/dri/renderD128";
/// Some character device, which is only looked at: requests to it end here.
constexpr const char* behind = "/dev/null";
/// In the offsets by which buffers are mapped; no file is that long.
constexpr std::uint64_t mark = 1ULL << 44;
constexpr unsigned pageBits = 12;

struct Buffer {
  int memory;
  ino_t inode;
};

std::mutex mutex;
std::map<std::uint32_t, Buffer> buffers;
std::uint32_t lastHandle = 0;

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

int refuse(int error) {
  errno = error;
  return -1;
}

std::uint32_t keep(int memory) {
  struct stat status {};
  ::fstat(memory, &status);
  buffers[++lastHandle] = {memory, status.st_ino};
  return lastHandle;
}

int create(drm_mode_create_dumb& request) {
  constexpr std::uint32_t alignment = 64;
  const std::uint32_t row = request.width * ((request.bpp + 7) / 8);
  request.pitch = (row + alignment - 1) / alignment * alignment;
  const std::uint64_t page = 1U << pageBits;
  request.size = (std::uint64_t{request.pitch} * request.height + page - 1) / page * page;
  const int memory = ::memfd_create("buffer", MFD_CLOEXEC);
  if (memory < 0 || ::ftruncate(memory, static_cast<off_t>(request.size)) != 0) return refuse(ENOMEM);
  request.handle = keep(memory);
  return 0;
}

int import(drm_prime_handle& request) {
  struct stat status {};
  if (::fstat(request.fd, &status) != 0) return -1;
  for (const auto& [handle, buffer] : buffers) {
    if (buffer.inode != status.st_ino) continue;
    request.handle = handle;
    return 0;
  }
  const int memory = ::fcntl(request.fd, F_DUPFD_CLOEXEC, 0);
  if (memory < 0) return -1;
  request.handle = keep(memory);
  return 0;
}

void tell(char* to, __kernel_size_t& size, const char* words) {
  if (to != nullptr) std::memcpy(to, words, std::min<std::size_t>(size, std::strlen(words)));
  size = std::strlen(words);
}

int answer(unsigned long request, void* data) {
  const std::lock_guard lock(mutex);
  switch (request) {
    case DRM_IOCTL_VERSION: {
      auto& version = *static_cast<drm_version*>(data);
      tell(version.name, version.name_len, "memory");
      tell(version.date, version.date_len, "0");
      tell(version.desc, version.desc_len, "memory");
      return 0;
    }
    case DRM_IOCTL_GET_CAP: {
      auto& capability = *static_cast<drm_get_cap*>(data);
      capability.value = capability.capability == DRM_CAP_DUMB_BUFFER ? 1
                         : capability.capability == DRM_CAP_PRIME
                             ? DRM_PRIME_CAP_IMPORT | DRM_PRIME_CAP_EXPORT
                             : 0;
      return 0;
    }
    case DRM_IOCTL_MODE_CREATE_DUMB:
      return create(*static_cast<drm_mode_create_dumb*>(data));
    case DRM_IOCTL_MODE_MAP_DUMB: {
      auto& map = *static_cast<drm_mode_map_dumb*>(data);
      map.offset = mark | std::uint64_t{map.handle} << pageBits;
      return 0;
    }
    case DRM_IOCTL_PRIME_HANDLE_TO_FD: {
      auto& prime = *static_cast<drm_prime_handle*>(data);
      const auto buffer = buffers.find(prime.handle);
      if (buffer == buffers.end()) return refuse(ENOENT);
      prime.fd = ::fcntl(buffer->second.memory, F_DUPFD_CLOEXEC, 0);
      return prime.fd < 0 ? -1 : 0;
    }
    case DRM_IOCTL_PRIME_FD_TO_HANDLE:
      return import(*static_cast<drm_prime_handle*>(data));
    case DRM_IOCTL_GEM_CLOSE:
    case DRM_IOCTL_MODE_DESTROY_DUMB: {
      const auto buffer = buffers.find(*static_cast<std::uint32_t*>(data));  // what both begin with
      if (buffer == buffers.end()) return refuse(ENOENT);
      ::close(buffer->second.memory);
      buffers.erase(buffer);
      return 0;
    }
    default:
      return refuse(EINVAL);
  }
}

int open(const char* name, const char* path, int flags, mode_t mode) {
  const bool isNode = std::strcmp(path, node) == 0;
  return real<int(const char*, int, ...)>(name)(isNode ? behind : path, isNode ? O_PATH | O_CLOEXEC : flags,
                                                mode);
}

void* map(const char* name, void* address, std::size_t size, int protection, int flags, int file,
          off_t offset) {
  if ((static_cast<std::uint64_t>(offset) & mark) != 0) {
    const std::lock_guard lock(mutex);
    const auto buffer =
        buffers.find(static_cast<std::uint32_t>((static_cast<std::uint64_t>(offset) & ~mark) >> pageBits));
    if (buffer != buffers.end()) {
      file = buffer->second.memory;
      offset = 0;
    }
  }
  return real<void*(void*, std::size_t, int, int, int, off_t)>(name)(address, size, protection, flags, file,
                                                                     offset);
}

[[gnu::constructor]] void keepToThisProcess() {
  ::unsetenv("LD_PRELOAD");
}

}  // namespace

// In the place of the C library's functions, libdrm's and wlroots'.
extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return open("open", path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  std::va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return open("open64", path, flags, mode);
}

int ioctl(int file, unsigned long request, ...) {
  std::va_list more;
  va_start(more, request);
  void* const data = va_arg(more, void*);
  va_end(more);
  struct stat status {};
  if (_IOC_TYPE(request) == DRM_IOCTL_BASE && ::fstat(file, &status) == 0 && S_ISCHR(status.st_mode))
    return answer(request, data);
  return real<int(int, unsigned long, ...)>("ioctl")(file, request, data);
}

void* mmap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
  return map("mmap", address, size, protection, flags, file, offset);
}
void* mmap64(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
  return map("mmap64", address, size, protection, flags, file, offset);
}

int wlr_backend_get_drm_fd(void* /*backend*/) {
  static const int file = open("open", node, 0, 0);  // stays open: the compositor owns it
  return file;
}
char* drmGetRenderDeviceNameFromFd(int /*file*/) {
  return ::strdup(node);
}

int setuid(uid_t /*user*/) {
  return refuse(EPERM);
}
int setgid(gid_t /*group*/) {
  return refuse(EPERM);
}
}
