// Filing entries in the module-limit map, for the configuration reader.
#ifndef QUENDAL_CONFIG_MODULE_LIMITS_H
#define QUENDAL_CONFIG_MODULE_LIMITS_H

namespace Quendal {
namespace Config {

// Files name, a malloc'ed buffer of kNameBufferSize bytes, with limit in
// getModuleLimits() and takes the buffer over: ConfigFileReader::DeInit frees
// it. Returns false and leaves the buffer to the caller when the entry cannot
// be stored (no memory, or the map was already destroyed at exit).
bool FileModuleLimit(char* name, unsigned long limit);

}  // namespace Config
}  // namespace Quendal

#endif
