#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

namespace base {

// A map kept as a vector of pairs sorted by key: lookups bisect, insertions and erasures shift
// the tail. Meant for small maps that are read far more often than changed. Unlike std::map,
// any insertion or erasure invalidates every iterator, and the key of an element must not be
// changed through an iterator.
//
// Building from a range or a list sorts it and keeps the first element of each run of equal
// keys, as inserting the elements one by one would.
template <class Key, class Mapped, class Compare = std::less<>>
class flat_map {
  public:
    using key_type = Key;
    using mapped_type = Mapped;
    using value_type = std::pair<Key, Mapped>;
    using container_type = std::vector<value_type>;
    using key_compare = Compare;
    using size_type = typename container_type::size_type;
    using difference_type = typename container_type::difference_type;
    using reference = value_type&;
    using const_reference = const value_type&;
    using pointer = value_type*;
    using const_pointer = const value_type*;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;
    using reverse_iterator = typename container_type::reverse_iterator;
    using const_reverse_iterator = typename container_type::const_reverse_iterator;

    class value_compare {
      public:
        explicit value_compare(const Compare& comp) : mComp(comp) {}
        bool operator()(const value_type& a, const value_type& b) const {
            return mComp(a.first, b.first);
        }

      private:
        Compare mComp;
    };

    flat_map() = default;
    explicit flat_map(const Compare& comp) : mComp(comp) {}
    template <class InputIt>
    flat_map(InputIt first, InputIt last, const Compare& comp = Compare())
        : mComp(comp), mBody(first, last) {
        SortAndUnique(mBody.begin());
    }
    flat_map(std::initializer_list<value_type> items, const Compare& comp = Compare())
        : flat_map(items.begin(), items.end(), comp) {}
    // Adopts `items`, sorting them and dropping later duplicates.
    explicit flat_map(container_type items, const Compare& comp = Compare())
        : mComp(comp), mBody(std::move(items)) {
        SortAndUnique(mBody.begin());
    }

    flat_map(const flat_map&) = default;
    flat_map(flat_map&&) noexcept = default;
    flat_map& operator=(const flat_map&) = default;
    flat_map& operator=(flat_map&&) noexcept = default;
    flat_map& operator=(std::initializer_list<value_type> items) {
        mBody.assign(items.begin(), items.end());
        SortAndUnique(mBody.begin());
        return *this;
    }

    // Capacity.
    bool empty() const { return mBody.empty(); }
    size_type size() const { return mBody.size(); }
    size_type max_size() const { return mBody.max_size(); }
    size_type capacity() const { return mBody.capacity(); }
    void reserve(size_type n) { mBody.reserve(n); }
    void shrink_to_fit() { mBody.shrink_to_fit(); }

    // Iterators.
    iterator begin() { return mBody.begin(); }
    const_iterator begin() const { return mBody.begin(); }
    const_iterator cbegin() const { return mBody.cbegin(); }
    iterator end() { return mBody.end(); }
    const_iterator end() const { return mBody.end(); }
    const_iterator cend() const { return mBody.cend(); }
    reverse_iterator rbegin() { return mBody.rbegin(); }
    const_reverse_iterator rbegin() const { return mBody.rbegin(); }
    const_reverse_iterator crbegin() const { return mBody.crbegin(); }
    reverse_iterator rend() { return mBody.rend(); }
    const_reverse_iterator rend() const { return mBody.rend(); }
    const_reverse_iterator crend() const { return mBody.crend(); }

    // Overloads taking any `K` exist only with a transparent comparator, as in std::map.

    // Element access. at() requires the key to be present and aborts otherwise.
    mapped_type& operator[](const key_type& key) { return try_emplace(key).first->second; }
    mapped_type& operator[](key_type&& key) { return try_emplace(std::move(key)).first->second; }
    mapped_type& at(const key_type& key) { return AtImpl(*this, key); }
    const mapped_type& at(const key_type& key) const { return AtImpl(*this, key); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    mapped_type& at(const K& key) {
        return AtImpl(*this, key);
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    const mapped_type& at(const K& key) const {
        return AtImpl(*this, key);
    }

    // Modifiers. Insertion never replaces an existing element except through insert_or_assign
    // and operator[].
    std::pair<iterator, bool> insert(const value_type& value) {
        iterator it = lower_bound(value.first);
        if (it != end() && !mComp(value.first, it->first)) return {it, false};
        return {mBody.insert(it, value), true};
    }
    std::pair<iterator, bool> insert(value_type&& value) {
        iterator it = lower_bound(value.first);
        if (it != end() && !mComp(value.first, it->first)) return {it, false};
        return {mBody.insert(it, std::move(value)), true};
    }
    // A hint at end() for a key above every other appends without a search, so copying a sorted
    // range costs no lookups; any other hint is ignored.
    iterator insert(const_iterator hint, const value_type& value) {
        if (AppendsAt(hint, value.first)) {
            mBody.push_back(value);
            return std::prev(mBody.end());
        }
        return insert(value).first;
    }
    iterator insert(const_iterator hint, value_type&& value) {
        if (AppendsAt(hint, value.first)) {
            mBody.push_back(std::move(value));
            return std::prev(mBody.end());
        }
        return insert(std::move(value)).first;
    }
    template <class InputIt>
    void insert(InputIt first, InputIt last) {
        const size_type old_size = mBody.size();
        mBody.insert(mBody.end(), first, last);
        SortAndUnique(mBody.begin() + static_cast<difference_type>(old_size));
    }
    void insert(std::initializer_list<value_type> items) { insert(items.begin(), items.end()); }

    template <class... Args>
    std::pair<iterator, bool> emplace(Args&&... args) {
        return insert(value_type(std::forward<Args>(args)...));
    }
    template <class... Args>
    iterator emplace_hint(const_iterator /*hint*/, Args&&... args) {
        return emplace(std::forward<Args>(args)...).first;
    }

    template <class... Args>
    std::pair<iterator, bool> try_emplace(const key_type& key, Args&&... args) {
        return TryEmplaceImpl(key, std::forward<Args>(args)...);
    }
    template <class... Args>
    std::pair<iterator, bool> try_emplace(key_type&& key, Args&&... args) {
        return TryEmplaceImpl(std::move(key), std::forward<Args>(args)...);
    }

    template <class M>
    std::pair<iterator, bool> insert_or_assign(const key_type& key, M&& mapped) {
        auto result = try_emplace(key, std::forward<M>(mapped));
        if (!result.second) result.first->second = std::forward<M>(mapped);
        return result;
    }
    template <class M>
    std::pair<iterator, bool> insert_or_assign(key_type&& key, M&& mapped) {
        auto result = try_emplace(std::move(key), std::forward<M>(mapped));
        if (!result.second) result.first->second = std::forward<M>(mapped);
        return result;
    }

    iterator erase(iterator pos) { return mBody.erase(pos); }
    iterator erase(const_iterator pos) { return mBody.erase(pos); }
    iterator erase(const_iterator first, const_iterator last) { return mBody.erase(first, last); }
    size_type erase(const key_type& key) { return EraseImpl(key); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    size_type erase(const K& key) {
        return EraseImpl(key);
    }

    void clear() { mBody.clear(); }
    void swap(flat_map& other) noexcept {
        using std::swap;
        swap(mComp, other.mComp);
        mBody.swap(other.mBody);
    }

    // Lookup.
    iterator find(const key_type& key) { return FindImpl(*this, key); }
    const_iterator find(const key_type& key) const { return FindImpl(*this, key); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    iterator find(const K& key) {
        return FindImpl(*this, key);
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    const_iterator find(const K& key) const {
        return FindImpl(*this, key);
    }

    size_type count(const key_type& key) const { return find(key) != end() ? 1 : 0; }
    template <class K, class C = Compare, class = typename C::is_transparent>
    size_type count(const K& key) const {
        return find(key) != end() ? 1 : 0;
    }
    bool contains(const key_type& key) const { return find(key) != end(); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    bool contains(const K& key) const {
        return find(key) != end();
    }

    iterator lower_bound(const key_type& key) { return LowerBoundImpl(*this, key); }
    const_iterator lower_bound(const key_type& key) const { return LowerBoundImpl(*this, key); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    iterator lower_bound(const K& key) {
        return LowerBoundImpl(*this, key);
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    const_iterator lower_bound(const K& key) const {
        return LowerBoundImpl(*this, key);
    }

    iterator upper_bound(const key_type& key) { return UpperBoundImpl(*this, key); }
    const_iterator upper_bound(const key_type& key) const { return UpperBoundImpl(*this, key); }
    template <class K, class C = Compare, class = typename C::is_transparent>
    iterator upper_bound(const K& key) {
        return UpperBoundImpl(*this, key);
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    const_iterator upper_bound(const K& key) const {
        return UpperBoundImpl(*this, key);
    }

    std::pair<iterator, iterator> equal_range(const key_type& key) {
        return {lower_bound(key), upper_bound(key)};
    }
    std::pair<const_iterator, const_iterator> equal_range(const key_type& key) const {
        return {lower_bound(key), upper_bound(key)};
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    std::pair<iterator, iterator> equal_range(const K& key) {
        return {lower_bound(key), upper_bound(key)};
    }
    template <class K, class C = Compare, class = typename C::is_transparent>
    std::pair<const_iterator, const_iterator> equal_range(const K& key) const {
        return {lower_bound(key), upper_bound(key)};
    }

    key_compare key_comp() const { return mComp; }
    value_compare value_comp() const { return value_compare(mComp); }

    friend bool operator==(const flat_map& a, const flat_map& b) { return a.mBody == b.mBody; }
    friend bool operator!=(const flat_map& a, const flat_map& b) { return a.mBody != b.mBody; }
    friend bool operator<(const flat_map& a, const flat_map& b) { return a.mBody < b.mBody; }
    friend void swap(flat_map& a, flat_map& b) noexcept { a.swap(b); }

  private:
    bool AppendsAt(const_iterator hint, const key_type& key) const {
        return hint == mBody.cend() && (mBody.empty() || mComp(mBody.back().first, key));
    }

    // Elements before `unsorted` are already sorted and unique; those from `unsorted` on are
    // new. Earlier elements win over later ones with an equal key.
    void SortAndUnique(iterator unsorted) {
        value_compare less(mComp);
        std::stable_sort(unsorted, mBody.end(), less);
        std::inplace_merge(mBody.begin(), unsorted, mBody.end(), less);
        // Sorted, so neighbours are equal exactly when the earlier is not less than the later.
        auto equal = [this](const value_type& a, const value_type& b) {
            return !mComp(a.first, b.first);
        };
        mBody.erase(std::unique(mBody.begin(), mBody.end(), equal), mBody.end());
    }

    template <class Self, class K>
    static auto LowerBoundImpl(Self& self, const K& key) -> decltype(self.mBody.begin()) {
        return std::lower_bound(
            self.mBody.begin(), self.mBody.end(), key,
            [&self](const value_type& v, const K& k) { return self.mComp(v.first, k); });
    }

    template <class Self, class K>
    static auto UpperBoundImpl(Self& self, const K& key) -> decltype(self.mBody.begin()) {
        return std::upper_bound(
            self.mBody.begin(), self.mBody.end(), key,
            [&self](const K& k, const value_type& v) { return self.mComp(k, v.first); });
    }

    template <class Self, class K>
    static auto FindImpl(Self& self, const K& key) -> decltype(self.mBody.begin()) {
        auto it = LowerBoundImpl(self, key);
        if (it == self.mBody.end() || self.mComp(key, it->first)) return self.mBody.end();
        return it;
    }

    template <class Self, class K>
    static auto AtImpl(Self& self, const K& key) -> decltype((self.mBody.begin()->second)) {
        auto it = FindImpl(self, key);
        if (it == self.mBody.end()) std::abort();
        return it->second;
    }

    template <class K, class... Args>
    std::pair<iterator, bool> TryEmplaceImpl(K&& key, Args&&... args) {
        iterator it = lower_bound(key);
        if (it != end() && !mComp(key, it->first)) return {it, false};
        it =
            mBody.emplace(it, std::piecewise_construct, std::forward_as_tuple(std::forward<K>(key)),
                          std::forward_as_tuple(std::forward<Args>(args)...));
        return {it, true};
    }

    template <class K>
    size_type EraseImpl(const K& key) {
        iterator it = find(key);
        if (it == end()) return 0;
        mBody.erase(it);
        return 1;
    }

    Compare mComp;
    container_type mBody;
};

}  // namespace base
