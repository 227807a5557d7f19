#pragma once

#include <initializer_list>

#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioAclRow.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

/**
 * Convertor of a plain table of one pipeline that lies behind the hash registers of the pipeline's ACL
 * processor, as a single copy. `Table` says its `pipeline()`.
 */
template <class Table, std::size_t maxWords>
class AclPipelineConvertor
    : public PlainCopiesConvertor<typename Table::Key, typename Table::Result, maxWords> {
public:
    using Copies = PlainCopiesConvertor<typename Table::Key, typename Table::Result, maxWords>;
    using typename Copies::Copy;
    using typename Copies::HwIndex;

protected:
    using Copies::Copies;

    U8 pipeline() const { return static_cast<Table const&>(this->swTable()).pipeline(); }
    /** What selects the pipeline in a control word: nothing where each has a processor of its own. */
    U32 pipelineBit() const { return singleAclPipeMode_ ? 0 : pipeline() & 1u; }

    /** Creates the copy, of rows from 0 on. */
    void createRows(NerioSwitchApi::TableState state, TableIndex table, U32 rows,
                    std::initializer_list<char const*> registers) {
        singleAclPipeMode_ = aclRowFormat(*this->profile()).singleAclPipeMode;
        U32 const processor = singleAclPipeMode_ ? pipeline() : pipeline() >> 1;
        auto const prefix = Sorn::_fmt("ingress/processor_acl[%u]/", processor);
        this->createCopy(0, state, 0, rows - 1, this->copyName(TableConstants::tableName(table), pipeline()),
                         NerioSwitchApi::addressesOf(prefix, registers), "table");
    }

    void traceMissingRow(Copy /*copy*/, HwIndex row) const override {
        SORN_TRACE(this->trace(), 9, "pipe {} index {} does not exist.", pipeline(), row);
    }

private:
    bool singleAclPipeMode_ = false;
};

}  // namespace NerioSwitchTable
