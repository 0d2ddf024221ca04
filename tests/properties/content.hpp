// SPDX-License-Identifier: LGPL-2.1-or-later

// An inspectable beside its plain record, wherever it lives.
#pragma once

#include "properties/plainediting.hpp"
#include "properties/trace.hpp"

#include <qandor/inspectable.h>

namespace qandor::test {

PlainBytes plain_bytes(const GArray *array);
PlainBytes written(const inspectable *real);

// Throws a Difference when a public read function answers otherwise than the plain record does.
void check_reads(inspectable *real, const PlainInspectable &plain);
// The same of what is printed, of the plain view and of the XML form.
void check_forms(const inspectable *real);

// One random edit of both.
void edit(inspectable *real, PlainInspectable &plain, RandomRecords &random, const Trace &trace);

} // namespace qandor::test
