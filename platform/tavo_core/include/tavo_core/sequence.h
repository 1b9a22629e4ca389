#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace CL {

/// The edits of one kind in one song, in ascending order of their tick; equal ticks keep the order of adding. An
/// element keeps its address until it is removed or the sequence destroyed, and moves with the sequence when that is
/// moved; copying copies the elements. Adding and removing invalidate all iterators. Not thread-safe.
template <class T>
class ChangeLogSequence {
    using Storage = std::vector<std::unique_ptr<T>>;

    template <class Value, class Base>
    class Iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = Value*;
        using reference = Value&;

        Iterator() = default;
        explicit Iterator(Base base) : base_(base) {}

        reference operator*() const { return **base_; }
        pointer operator->() const { return base_->get(); }
        reference operator[](difference_type n) const { return *base_[n]; }
        Iterator& operator++() { return ++base_, *this; }
        Iterator operator++(int) { return Iterator(base_++); }
        Iterator& operator--() { return --base_, *this; }
        Iterator operator--(int) { return Iterator(base_--); }
        Iterator& operator+=(difference_type n) { return base_ += n, *this; }
        Iterator& operator-=(difference_type n) { return base_ -= n, *this; }
        friend Iterator operator+(Iterator it, difference_type n) { return it += n; }
        friend Iterator operator+(difference_type n, Iterator it) { return it += n; }
        friend Iterator operator-(Iterator it, difference_type n) { return it -= n; }
        friend difference_type operator-(const Iterator& a, const Iterator& b) { return a.base_ - b.base_; }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.base_ == b.base_; }
        friend auto operator<=>(const Iterator& a, const Iterator& b) { return a.base_ <=> b.base_; }

    private:
        Base base_{};
    };

public:
    /// The edit itself, not the pointer that is stored.
    using value_type = T;
    /// Random access. An edit changed through it stays where it is: its tick must stay, too, or the order is lost.
    using iterator = Iterator<T, typename Storage::iterator>;
    /// Random access.
    using const_iterator = Iterator<const T, typename Storage::const_iterator>;

    ChangeLogSequence() = default;
    /// The copies have addresses of their own.
    ChangeLogSequence(const ChangeLogSequence& other) {
        elements_.reserve(other.size());
        for (const T& element : other)
            elements_.push_back(std::make_unique<T>(element));
    }
    /// The elements keep their addresses.
    ChangeLogSequence(ChangeLogSequence&&) noexcept = default;
    /// Destroys what was there; without memory it stays as it was.
    ChangeLogSequence& operator=(const ChangeLogSequence& other) {
        if (this != &other) *this = ChangeLogSequence(other);
        return *this;
    }
    /// Destroys what was there; the elements of the other keep their addresses.
    ChangeLogSequence& operator=(ChangeLogSequence&&) noexcept = default;
    ~ChangeLogSequence() = default;

    /// The edit with the lowest tick, to be changed in place.
    iterator begin() { return iterator(elements_.begin()); }
    /// After the edit with the highest tick.
    iterator end() { return iterator(elements_.end()); }
    /// The edit with the lowest tick.
    const_iterator begin() const { return const_iterator(elements_.begin()); }
    /// After the edit with the highest tick.
    const_iterator end() const { return const_iterator(elements_.end()); }
    /// Edits; constant time.
    [[nodiscard]] std::size_t size() const { return elements_.size(); }
    /// Whether the song has no edit of the kind.
    [[nodiscard]] bool empty() const { return elements_.empty(); }
    /// `index` is below size(), which is not checked, and counts in order of tick. The tick must stay.
    T& operator[](std::size_t index) { return *elements_[index]; }
    /// `index` is below size(), which is not checked.
    const T& operator[](std::size_t index) const { return *elements_[index]; }

    /// Inserts after every element whose tick is not greater, and returns the element that is now in the sequence.
    /// Linear in what comes after it; without memory the sequence is as before.
    T& Add(T element) {
        const auto place =
            std::upper_bound(elements_.begin(), elements_.end(), element.abs_time(),
                             [](unsigned int tick, const auto& other) { return tick < other->abs_time(); });
        return **elements_.insert(place, std::make_unique<T>(std::move(element)));
    }

    /// Removes and destroys the element at `index`, which must be below size().
    void RemoveAt(std::size_t index) { elements_.erase(elements_.begin() + static_cast<std::ptrdiff_t>(index)); }

private:
    Storage elements_;
};

}  // namespace CL

namespace TL {

/// The timeline's entries of one kind, in ascending order of their tick. An element keeps its address while entries
/// are appended. Not thread-safe.
template <class T>
class TimelineSequence {
public:
    /// An entry, stored in place.
    using value_type = T;
    /// Random access; an entry that is changed through it keeps its tick.
    using iterator = typename std::deque<T>::iterator;
    /// Random access. Appending invalidates iterators, not addresses.
    using const_iterator = typename std::deque<T>::const_iterator;

    TimelineSequence() = default;
    /// Entries in ascending order of tick, which is not checked.
    TimelineSequence(std::initializer_list<T> entries) : entries_(entries) {}
    /// Copies of entries in ascending order of tick, which is not checked.
    template <class Iterator>
    TimelineSequence(Iterator first, Iterator last) : entries_(first, last) {}
    /// Takes entries over that are in ascending order of tick, which is not checked; moving them in costs nothing.
    explicit TimelineSequence(std::deque<T> entries) : entries_(std::move(entries)) {}

    /// The first entry, to be changed in place.
    iterator begin() { return entries_.begin(); }
    /// After the last entry.
    iterator end() { return entries_.end(); }
    /// The first entry, which need not stand at the song's start.
    const_iterator begin() const { return entries_.begin(); }
    /// After the last entry.
    const_iterator end() const { return entries_.end(); }
    /// Entries; constant time.
    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    /// Whether the song has no entry of the kind; FindInForceAt is then null for every tick.
    [[nodiscard]] bool empty() const { return entries_.empty(); }
    /// `index` is below size(), which is not checked. The tick must stay between its neighbours'.
    T& operator[](std::size_t index) { return entries_[index]; }
    /// `index` is below size(), which is not checked.
    const T& operator[](std::size_t index) const { return entries_[index]; }
    /// The entry with the lowest tick; not for an empty sequence.
    T& front() { return entries_.front(); }
    /// The entry with the lowest tick; not for an empty sequence.
    const T& front() const { return entries_.front(); }
    /// The entry with the highest tick; not for an empty sequence.
    T& back() { return entries_.back(); }
    /// The entry with the highest tick; not for an empty sequence.
    const T& back() const { return entries_.back(); }

    /// The caller appends in ascending order of tick, which is not checked. Returns the entry in its place.
    T& Append(T entry) { return entries_.emplace_back(std::move(entry)); }

    /// The last entry whose tick is not greater than `tick`; null where there is none: before the first. Logarithmic.
    [[nodiscard]] const T* FindInForceAt(unsigned int tick) const {
        const auto after = std::upper_bound(entries_.begin(), entries_.end(), tick,
                                            [](unsigned int t, const T& entry) { return t < entry.abs_time(); });
        return after == entries_.begin() ? nullptr : &*std::prev(after);
    }

private:
    std::deque<T> entries_;
};

}  // namespace TL
