// SPDX-License-Identifier: LGPL-2.1-or-later

// The generator of ids: from 1 on, whatever is released.

#include "properties/subject.hpp"

#include <qandor/idgenerator.h>

namespace qandor::test {
namespace {

struct FreeIds {
    void operator()(idgenerator *ids) const { idgenerator_free(ids); }
};

class IdSubject : public Subject {
public:
    std::string name() const override { return "ids"; }
    void edit(RandomRecords &random, const Trace &trace) override
    {
        if (random.one_in(3)) {
            guint32 id = random.one_in(4) ? random.id() : random.number(last_ + 2);
            trace.note("  release " + std::to_string(id));
            idgenerator_release(ids_.get(), id);
            return;
        }
        trace.note("  reserve");
        require_same<long long>(idgenerator_reserve(ids_.get()), ++last_, "id");
    }
    void check_reads() override {}
    void check_forms() override {}
    PlainBytes bytes() const override { return {}; }
    SubjectPtr copy() const override { return nullptr; }
    SubjectPtr read_back() const override { return nullptr; }

private:
    std::unique_ptr<idgenerator, FreeIds> ids_{idgenerator_new()};
    guint32 last_ = 0;
};

} // namespace

SubjectPtr make_ids()
{
    return std::make_unique<IdSubject>();
}

} // namespace qandor::test
