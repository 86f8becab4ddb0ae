#include "qorviccharsetdetector_p.h"

#include <atomic>

namespace {
const QOrvicCharsetDetector libuchardetTable = {
    uchardet_new,
    uchardet_handle_data,
    uchardet_data_end,
    uchardet_get_charset,
    uchardet_delete,
};

std::atomic<const QOrvicCharsetDetector *> installedTable{&libuchardetTable};
} // namespace

const QOrvicCharsetDetector &QOrvicCharsetDetector::current()
{
    return *installedTable.load(std::memory_order_acquire);
}

const QOrvicCharsetDetector &QOrvicCharsetDetector::libuchardet()
{
    return libuchardetTable;
}

const QOrvicCharsetDetector *QOrvicCharsetDetector::install(const QOrvicCharsetDetector *detector)
{
    return installedTable.exchange(detector ? detector : &libuchardetTable, std::memory_order_acq_rel);
}
