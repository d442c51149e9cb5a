// The one new-id callback of the process, called by the registry for every
// name it sees for the first time.
#ifndef QUENDAL_CLASSIFICATION_NEW_ID_CALLBACK_H
#define QUENDAL_CLASSIFICATION_NEW_ID_CALLBACK_H

namespace Quendal {
namespace Classification {

typedef void (*NewIdCallback)(const char* name, unsigned short id);

// Null until SetNewIdCallback stores a function; never reset, not even when
// the library is unloaded.
extern NewIdCallback pNewIdCB;

}  // namespace Classification
}  // namespace Quendal

#endif
