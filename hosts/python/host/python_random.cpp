#include "hosts/python/host/python_random.hpp"

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {
namespace {

std::uint64_t bits_of(nb::handle number) {
  const std::uint64_t bits = PyLong_AsUnsignedLongLong(number.ptr());
  if (PyErr_Occurred() != nullptr) throw_current_error();
  return bits;
}

nb::object random_class() {
  return attribute(import_module("random"), "Random");
}

}  // namespace

double PythonRandomGenerator::random() {
  return PyFloat_AS_DOUBLE(checked(PyNumber_Float(call_method(generator_, "random").ptr())).ptr());
}

std::uint64_t PythonRandomGenerator::getrandbits(int count) {
  return bits_of(call_method(generator_, "getrandbits", {to_python(count)}));
}

genetic::Value PythonRandomGenerator::getstate() const {
  return opaque_value(call_method(generator_, "getstate"));
}

std::shared_ptr<genetic::RandomGenerator> PythonRandomGenerators::seeded(
    const genetic::Value& seed) {
  return std::make_shared<PythonRandomGenerator>(call(random_class(), {to_python(seed)}));
}

std::shared_ptr<genetic::RandomGenerator> PythonRandomGenerators::from_state(
    const genetic::Value& state) {
  const nb::object generator = call(random_class());
  call_method(generator, "setstate", {to_python(state)});
  return std::make_shared<PythonRandomGenerator>(generator);
}

std::uint64_t PythonSecureRandom::randbits(int count) {
  return bits_of(call_method(import_module("secrets"), "randbits", {to_python(count)}));
}

void PythonPause::sleep(double seconds) {
  call_method(import_module("time"), "sleep", {to_python(seconds)});
}

std::shared_ptr<genetic::RandomGenerator> generator_or_null(nb::handle generator) {
  if (generator.is_none()) return nullptr;
  return std::make_shared<PythonRandomGenerator>(nb::borrow(generator));
}

nb::object object_of(const std::shared_ptr<genetic::RandomGenerator>& generator) {
  if (generator == nullptr) return nb::none();
  const auto python = std::dynamic_pointer_cast<PythonRandomGenerator>(generator);
  if (python == nullptr) throw genetic::TypeError("the generator is no generator of Python");
  return python->object();
}

}  // namespace varnholt::python
