#include "hw/adapter_patterns.h"

const std::vector<AdapterPattern> BrandPatternTable = {
    {L"brisko.*m410.*", 0x00000002},
    {L"brisko.*m420.*", 0x00000004},
    {L"brisko.*m440.*", 0x00000008},
    {L"brisko.*m450.*", 0x00000010},
    {L"brisko.*m460.*", 0x00000020},
    {L"brisko.*m470.*", 0x00000040},
    {L"brisko.*m471.*", 0x00000080},
    // The bits between are unassigned.
    {L"brisko.*w703.*", 0x00010000},
    {L"brisko.*w712.*", 0x00020000},
    {L"brisko.*w735.*", 0x00040000},
    {L"brisko.*w745.*", 0x00080000},
    {L"brisko.*w755.*", 0x00100000},
    {L"brisko.*w765.*", 0x00200000},
    {L"brisko.*w775.*", 0x00400000},
    {L"brisko.*w785.*", 0x00800000},
    {L"brisko.*QZ90.*", 0x01000000},
    {L"brisko.*QZ190.*", 0x02000000},
    {L"brisko.*", 0xFFFFFFFF},
};

const std::vector<AdapterPattern> HardwarePatternTable = {
    {L"Tarsel.*QZ311.*", 0x00000002},
};
