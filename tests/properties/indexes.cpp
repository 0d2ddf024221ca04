#include "properties/sequence.hpp"
namespace qandor::test {
void run_expression_index(unsigned, const Trace &) {}
void run_declaration_index(unsigned, const Trace &) {}
} // namespace qandor::test
