// Host helpers: call an entry by name with text arguments, and report an entry's argument kinds.
#include "AlgoFactoryHost.h"
#include "entry_guard.h"
#include "entry_registry.h"

#include <cstring>
#include <iostream>
#include <map>
#include <mutex>
#include <string>

using namespace algofactory;

ALGO_API bool AlgoFactory_CallEntry(const char* entryName, int argc, const char* const* argv, AlgoResult* result)
{
    return guardEntry("AlgoFactory_CallEntry", [&] {
        if (!entryName || argc < 0 || (argc > 0 && !argv))
            return false;
        for (const DirectNameRow& row : jsonTextEntryRegistry())
            if (std::strcmp(entryName, row.entry) == 0)
            {
                if (argc != 1)
                {
                    std::cout << "[ERROR] " << entryName << " takes one JSON text" << std::endl;
                    return false;
                }
                return row.call(argv[0] ? argv[0] : "");
            }
        for (const DispatchRow& row : entryRegistry())
            if (std::strcmp(entryName, row.entry) == 0)
            {
                if (argc != row.kinds.size())
                {
                    std::cout << "[ERROR] " << entryName << " takes " << row.kinds.size() << " arguments ("
                              << row.kinds.join(", ").toStdString() << "), " << argc << " given" << std::endl;
                    return false;
                }
                QStringList values;
                for (int i = 0; i < argc; ++i)
                    values << QString::fromLocal8Bit(argv[i] ? argv[i] : "");
                ParamReader reader(values);
                return row.call(reader, result);
            }
        std::cout << "[ERROR] No entry named " << entryName << std::endl;
        return false;
    });
}

ALGO_API const char* AlgoFactory_EntryKinds(const char* entryName)
{
    return guardEntry("AlgoFactory_EntryKinds", [&]() -> const char* {
        if (!entryName)
            return nullptr;
        static std::mutex lock;
        static std::map<std::string, std::string> kinds;
        std::lock_guard<std::mutex> guard(lock);
        if (kinds.empty())
        {
            for (const DirectNameRow& row : jsonTextEntryRegistry())
                kinds[row.entry] = "json";
            for (const DispatchRow& row : entryRegistry())
                kinds[row.entry] = row.kinds.join(',').toStdString();
        }
        auto it = kinds.find(entryName);
        return it == kinds.end() ? nullptr : it->second.c_str();
    });
}
