// The record tags of the snapshot file and the kinds of the items inside a
// block record, as the file's writers and the heap capture share them.
#pragma once

enum : int {
    SNAPSHOT_TAG_UTF8 = 0x01,
    SNAPSHOT_TAG_LOAD_CLASS = 0x02,
    SNAPSHOT_TAG_HEAP_DUMP_SEGMENT = 0x1C,
    SNAPSHOT_TAG_BLOCK = 0x25,
    SNAPSHOT_TAG_HEAP_DUMP_END = 0x2C,
    SNAPSHOT_ITEM_PROPERTIES = 1,
    SNAPSHOT_ITEM_TABLE = 2,
    SNAPSHOT_ITEM_EVENT_TABLE = 3,
    SNAPSHOT_ITEM_CLASS_INTERFACES = 8,
    SNAPSHOT_ITEM_CLASS_CONSTANT_POOL = 9,
};
