// Module ids built from names.
#include "quendal/classification.h"

namespace Quendal {
namespace Classification {

ModuleId::ModuleId(const char* name) : m_id(LookUpModuleId(name)) {}

}  // namespace Classification
}  // namespace Quendal
