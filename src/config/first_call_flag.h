// The reader's first-call flag: set by the first ReadConfigValues and read by
// nothing in the library; exposed so that tests can see it.
#ifndef QUENDAL_CONFIG_FIRST_CALL_FLAG_H
#define QUENDAL_CONFIG_FIRST_CALL_FLAG_H

namespace Quendal {
namespace Config {

// 0 until ReadConfigValues has run once, then 1.
unsigned char ReaderFirstCallFlag();

}  // namespace Config
}  // namespace Quendal

#endif
