// Replaces the raw draws of getRandNum_User with one fixed value, and counts
// them, for as long as it lives.
#ifndef QUENDAL_TESTS_UTIL_SCRIPTED_DRAW_H
#define QUENDAL_TESTS_UTIL_SCRIPTED_DRAW_H

#include "util/random_draw.h"

namespace quendal_test {

class ScriptedDraw {
 public:
  explicit ScriptedDraw(int value) : previous_(Quendal::Random::drawFunction) {
    Value() = value;
    Count() = 0;
    Quendal::Random::drawFunction = Draw;
  }
  ~ScriptedDraw() { Quendal::Random::drawFunction = previous_; }
  ScriptedDraw(const ScriptedDraw&) = delete;
  ScriptedDraw& operator=(const ScriptedDraw&) = delete;

  void Set(int value) { Value() = value; }
  int count() const { return Count(); }

 private:
  static int& Value() {
    static int value = 0;
    return value;
  }
  static int& Count() {
    static int count = 0;
    return count;
  }
  static int Draw() {
    ++Count();
    return Value();
  }

  Quendal::Random::DrawFunction previous_;
};

}  // namespace quendal_test

#endif
