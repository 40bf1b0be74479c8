// The JSON route's dispatch table: algorithm name -> entry, with argument kinds taken from the entry.
#pragma once

#include "param_reader.h"

#include <QStringList>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace algofactory
{

struct DispatchRow
{
    const char* name;
    const char* entry;
    QStringList kinds; // argument kinds of parameters 0..N-1, from the entry's signature
    RowTrace trace;
    std::function<bool(ParamReader&, AlgoResult*)> call;
};

// The rows in the order names are compared; the first match wins.
const std::vector<DispatchRow>& dispatchTable();

// The eight names whose entries take the raw JSON text, in the order they are compared.
struct DirectNameRow
{
    const char* name;
    const char* entry;
    bool (*call)(const char* jsonText);
};
const std::vector<DirectNameRow>& directNameTable();

namespace detail
{

template <typename Tuple, std::size_t... I>
QStringList kindsOf(std::index_sequence<I...>)
{
    return QStringList{QLatin1String(ArgKind<std::tuple_element_t<I, Tuple>>::name)...};
}

// Reads the parameters in index order (braced initialisation evaluates left to right) and calls.
template <typename R, typename Tuple, typename Entry, std::size_t... I>
bool invoke(Entry entry, ParamReader& reader, AlgoResult* result, bool passResult, std::index_sequence<I...>)
{
    Tuple args{reader.get<std::tuple_element_t<I, Tuple>>(int(I))...};
    auto call = [&](auto... a) -> bool {
        if constexpr (std::is_void_v<R>)
        {
            if constexpr (std::is_invocable_v<Entry, decltype(a)..., AlgoResult*>)
                entry(a..., result);
            else
                entry(a...);
            return true;
        }
        else
        {
            if constexpr (std::is_invocable_v<Entry, decltype(a)..., AlgoResult*>)
                return entry(a..., result);
            else
                return entry(a...);
        }
    };
    (void)passResult;
    return std::apply(call, args);
}

template <typename... A> struct LastIsResult : std::false_type {};
template <typename Last> struct LastIsResult<Last> : std::is_same<Last, AlgoResult*> {};
template <typename First, typename Second, typename... Rest>
struct LastIsResult<First, Second, Rest...> : LastIsResult<Second, Rest...> {};

template <typename Tuple, std::size_t... I> auto headOf(std::index_sequence<I...>) -> std::tuple<std::tuple_element_t<I, Tuple>...>;

} // namespace detail

// A row for an entry of any signature: its leading parameters are read by index and converted to
// the entry's own argument types; a trailing AlgoResult* receives the caller's record.
template <typename R, typename... A>
DispatchRow makeRow(const char* name, const char* entryName, R (*entry)(A...), RowTrace trace = RowTrace::None)
{
    constexpr bool takesResult = detail::LastIsResult<A...>::value;
    constexpr std::size_t count = sizeof...(A) - (takesResult ? 1 : 0);
    using All = std::tuple<A...>;
    using Params = decltype(detail::headOf<All>(std::make_index_sequence<count>()));
    DispatchRow row{name, entryName, detail::kindsOf<Params>(std::make_index_sequence<count>()), trace, {}};
    row.call = [entry](ParamReader& reader, AlgoResult* result) {
        return detail::invoke<R, Params>(entry, reader, result, takesResult, std::make_index_sequence<count>());
    };
    return row;
}

} // namespace algofactory
