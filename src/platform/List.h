// CList: an ordered list held by value. It keeps the order of insertion, walks from
// either end and replaces or removes an entry in place.
#pragma once

#include <list>

template <typename T>
class CList {
public:
    using iterator = typename std::list<T>::iterator;
    using const_iterator = typename std::list<T>::const_iterator;
    using reverse_iterator = typename std::list<T>::reverse_iterator;

    void AddTail(const T& entry) { m_entries.push_back(entry); }
    void RemoveAt(iterator position) { m_entries.erase(position); }
    size_t GetCount() const noexcept { return m_entries.size(); }
    bool IsEmpty() const noexcept { return m_entries.empty(); }
    T& GetHead() { return m_entries.front(); }

    iterator begin() noexcept { return m_entries.begin(); }
    iterator end() noexcept { return m_entries.end(); }
    const_iterator begin() const noexcept { return m_entries.begin(); }
    const_iterator end() const noexcept { return m_entries.end(); }
    reverse_iterator rbegin() noexcept { return m_entries.rbegin(); }
    reverse_iterator rend() noexcept { return m_entries.rend(); }

private:
    std::list<T> m_entries;
};
