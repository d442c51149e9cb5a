// A small program that costs the compiler many template instantiations:
// compile-time tables, variadic tuples, standard containers over several
// element types and std::variant visitation. It prints what it computed.
#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace {

template <std::size_t N>
struct Fibonacci {
  static constexpr std::uint64_t value = Fibonacci<N - 1>::value + Fibonacci<N - 2>::value;
};
template <>
struct Fibonacci<0> {
  static constexpr std::uint64_t value = 0;
};
template <>
struct Fibonacci<1> {
  static constexpr std::uint64_t value = 1;
};

template <std::size_t... I>
constexpr std::array<std::uint64_t, sizeof...(I)> FibonacciTable(std::index_sequence<I...>) {
  return {{Fibonacci<I>::value...}};
}

template <typename T>
struct Tag {};

template <typename T>
std::string Describe(const T& value, Tag<T>) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <typename T>
T Make(int i, Tag<T>) {
  return static_cast<T>(i);
}
std::string Make(int i, Tag<std::string>) {
  return "s" + std::to_string(i * 37 % 101);
}

// One container family per element type: sorted, counted, keyed.
template <typename T>
std::string Exercise(int count) {
  std::vector<T> values;
  for (int i = 0; i < count; ++i) {
    values.push_back(Make((i * 7919) % count, Tag<T>{}));
  }
  std::sort(values.begin(), values.end());
  std::map<T, int> counted;
  for (const T& v : values) {
    ++counted[v];
  }
  std::unordered_map<std::string, T> by_name;
  for (const auto& entry : counted) {
    by_name.emplace(Describe(entry.first, Tag<T>{}), entry.first);
  }
  std::ostringstream out;
  out << values.size() << " values, " << counted.size() << " distinct, first "
      << Describe(values.front(), Tag<T>{}) << ", last " << Describe(values.back(), Tag<T>{})
      << ", names " << by_name.size();
  return out.str();
}

template <typename... T>
std::vector<std::string> ExerciseAll(int count) {
  return {Exercise<T>(count)...};
}

template <typename Tuple, std::size_t... I>
std::string JoinTuple(const Tuple& tuple, std::index_sequence<I...>) {
  std::ostringstream out;
  ((out << (I == 0 ? "" : " ") << std::get<I>(tuple)), ...);
  return out.str();
}

using Value = std::variant<int, long, double, std::string, std::vector<int> >;

struct Weigh {
  std::string operator()(int v) const { return "int " + std::to_string(v); }
  std::string operator()(long v) const { return "long " + std::to_string(v * 3); }
  std::string operator()(double v) const { return "double " + std::to_string(v / 4); }
  std::string operator()(const std::string& v) const { return "string " + v; }
  std::string operator()(const std::vector<int>& v) const {
    return "vector " + std::to_string(std::accumulate(v.begin(), v.end(), 0));
  }
};

}  // namespace

int main() {
  constexpr auto table = FibonacciTable(std::make_index_sequence<60>{});
  static_assert(table[10] == 55, "table");
  std::cout << "fibonacci 59 " << table[59] << "\n";

  for (const std::string& line :
       ExerciseAll<int, long, unsigned, short, double, float, std::string>(5000)) {
    std::cout << line << "\n";
  }

  auto tuple = std::make_tuple(1, 2.5, std::string("three"), 'f', 5L, 6U);
  std::cout << JoinTuple(tuple, std::make_index_sequence<std::tuple_size<decltype(tuple)>::value>{})
            << "\n";

  std::vector<Value> values = {7, 8L, 9.0, std::string("ten"), std::vector<int>{1, 2, 3, 5}};
  for (const Value& v : values) {
    std::cout << std::visit(Weigh{}, v) << "\n";
  }
  return 0;
}
