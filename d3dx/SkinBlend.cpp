#include "SkinBlend.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <utility>

namespace skinblend {
namespace {

bool heavierFirst(const Influence& a, const Influence& b)
{
    return a.weight != b.weight ? a.weight > b.weight : a.bone < b.bone;
}

// Vertices carry a handful of influences: insertion sort beats std::sort's set-up.
template <class Less>
void sortFew(Influence* first, Influence* last, Less less)
{
    for (Influence* it = first + (first != last); it < last; ++it) {
        Influence moving = *it;
        Influence* hole = it;
        for (; hole != first && less(moving, *(hole - 1)); --hole)
            *hole = *(hole - 1);
        *hole = moving;
    }
}

// Sorts one vertex's influences by bone, folds repeats together and writes them, heaviest
// first, from `write` on. Returns the new end.
Influence* compactVertex(Influence* first, Influence* last, Influence* write)
{
    if (last - first == 1) {
        *write = *first;
        return write + 1;
    }
    sortFew(first, last, [](const Influence& a, const Influence& b) { return a.bone < b.bone; });
    Influence* start = write;
    for (Influence* it = first; it != last; ++it) {
        if (write != start && (write - 1)->bone == it->bone)
            (write - 1)->weight += it->weight;
        else
            *write++ = *it;
    }
    sortFew(start, write, heavierFirst);
    return write;
}

// Adds one vertex's influences into the face's running bone totals.
void accumulate(const VertexInfluences& influences, uint32_t vertex, std::vector<Influence>& totals)
{
    for (const Influence* it = influences.begin(vertex); it != influences.end(vertex); ++it) {
        auto found = std::find_if(totals.begin(), totals.end(),
                                  [&](const Influence& t) { return t.bone == it->bone; });
        if (found == totals.end())
            totals.push_back(*it);
        else
            found->weight += it->weight;
    }
}

using BoneSet = std::array<uint32_t, kMaxBlendMatrices>;
static_assert(kMaxBlendMatrices == 4, "GroupKey compares four slots");

struct GroupKey {
    uint32_t attribute;
    BoneSet bones;
    bool operator==(const GroupKey& other) const
    {
        return attribute == other.attribute && bones[0] == other.bones[0] && bones[1] == other.bones[1] &&
               bones[2] == other.bones[2] && bones[3] == other.bones[3];
    }
};

struct GroupKeyHash {
    size_t operator()(const GroupKey& key) const
    {
        uint64_t h = key.attribute * 0x9E3779B97F4A7C15ull;
        for (uint32_t bone : key.bones)
            h = (h ^ bone) * 0x100000001B3ull;
        return size_t(h ^ (h >> 29));
    }
};

uint32_t usedSlots(const BoneSet& bones)
{
    return uint32_t(std::find(bones.begin(), bones.end(), kUnusedBone) - bones.begin());
}

bool contains(const std::vector<uint32_t>& bones, uint32_t bone)
{
    return std::find(bones.begin(), bones.end(), bone) != bones.end();
}

// The bones a face keeps when it needs more than `capacity`: every corner's heaviest bone
// first, so no corner loses all of its influences, then the heaviest by summed weight.
BoneSet reduceFaceBones(const VertexInfluences& influences, const uint32_t* corners,
                        std::vector<Influence>& totals, uint32_t capacity)
{
    BoneSet set;
    set.fill(kUnusedBone);
    uint32_t kept = 0;
    auto keep = [&](uint32_t bone) {
        if (kept < capacity && std::find(set.begin(), set.begin() + kept, bone) == set.begin() + kept)
            set[kept++] = bone;
    };
    for (int corner = 0; corner < 3; ++corner)
        if (influences.count(corners[corner]))
            keep(influences.begin(corners[corner])->bone);
    std::sort(totals.begin(), totals.end(), heavierFirst);
    for (const Influence& total : totals)
        keep(total.bone);
    for (uint32_t i = 1; i < kept; ++i)
        for (uint32_t j = i; j > 0 && set[j - 1] > set[j]; --j)
            std::swap(set[j - 1], set[j]);
    return set;
}

// The face's distinct bones when they fit `capacity`, gathered without weights; false once
// they do not.
bool smallFaceBones(const VertexInfluences& influences, const uint32_t* corners, uint32_t capacity,
                    BoneSet& set, uint32_t& count)
{
    set.fill(kUnusedBone);
    count = 0;
    for (int corner = 0; corner < 3; ++corner) {
        for (const Influence* it = influences.begin(corners[corner]); it != influences.end(corners[corner]); ++it) {
            uint32_t i = 0;
            while (i < count && set[i] != it->bone)
                ++i;
            if (i < count)
                continue;
            if (count == capacity)
                return false;
            // Kept in order as it grows: at most four entries.
            uint32_t at = count++;
            for (; at > 0 && set[at - 1] > it->bone; --at)
                set[at] = set[at - 1];
            set[at] = it->bone;
        }
    }
    return true;
}

// The heaviest bones of a face known to touch more than `capacity`.
BoneSet crowdedFaceBones(const VertexInfluences& influences, const uint32_t* corners,
                         std::vector<Influence>& totals, uint32_t capacity)
{
    totals.clear();
    for (int corner = 0; corner < 3; ++corner)
        accumulate(influences, corners[corner], totals);
    return reduceFaceBones(influences, corners, totals, capacity);
}

// The face's bone set, reduced to `capacity` bones; `touched` is how many it has before that.
BoneSet faceBones(const VertexInfluences& influences, const uint32_t* corners,
                  std::vector<Influence>& totals, uint32_t capacity, uint32_t& touched)
{
    BoneSet set;
    if (smallFaceBones(influences, corners, capacity, set, touched))
        return set;
    set = crowdedFaceBones(influences, corners, totals, capacity);
    touched = uint32_t(totals.size());
    return set;
}

struct FaceGroups {
    std::vector<GroupKey> keys;
    std::vector<uint32_t> firstFace;
    std::vector<uint32_t> groupOfFace;
};

bool cornersInRange(const uint32_t* corners, uint32_t vertexCount)
{
    return corners[0] < vertexCount && corners[1] < vertexCount && corners[2] < vertexCount;
}

// Numbers the distinct (material, bone set) keys in order of first use.
class GroupIndex {
public:
    explicit GroupIndex(FaceGroups& groups) : m_groups(groups) {}
    uint32_t groupOf(const GroupKey& key, uint32_t face)
    {
        // Look up before inserting: emplace would allocate for every call.
        auto found = m_index.find(key);
        if (found != m_index.end())
            return found->second;
        const uint32_t group = uint32_t(m_groups.keys.size());
        m_index.emplace(key, group);
        m_groups.keys.push_back(key);
        m_groups.firstFace.push_back(face);
        return group;
    }

private:
    FaceGroups& m_groups;
    std::unordered_map<GroupKey, uint32_t, GroupKeyHash> m_index;
};

// With at most 64 bones a vertex's bones fit one mask and a face's bones are the union of
// three; this open-addressed table maps (material, mask) to the group.
class MaskCache {
public:
    MaskCache() : m_entries(256) {}
    uint32_t* find(uint64_t mask, uint32_t attribute)
    {
        size_t at = slot(mask, attribute);
        while (m_entries[at].used) {
            if (m_entries[at].mask == mask && m_entries[at].attribute == attribute)
                return &m_entries[at].group;
            at = (at + 1) & (m_entries.size() - 1);
        }
        return nullptr;
    }
    void insert(uint64_t mask, uint32_t attribute, uint32_t group)
    {
        if (2 * (m_count + 1) > m_entries.size())
            grow();
        size_t at = slot(mask, attribute);
        while (m_entries[at].used)
            at = (at + 1) & (m_entries.size() - 1);
        m_entries[at] = Entry{mask, attribute, group, true};
        ++m_count;
    }

private:
    struct Entry {
        uint64_t mask = 0;
        uint32_t attribute = 0;
        uint32_t group = 0;
        bool used = false;
    };
    size_t slot(uint64_t mask, uint32_t attribute) const
    {
        uint64_t h = (mask ^ (uint64_t(attribute) << 32 | attribute)) * 0x9E3779B97F4A7C15ull;
        return size_t(h >> 40) & (m_entries.size() - 1);
    }
    void grow()
    {
        std::vector<Entry> old;
        old.swap(m_entries);
        m_entries.resize(old.size() * 2);
        m_count = 0;
        for (const Entry& e : old)
            if (e.used)
                insert(e.mask, e.attribute, e.group);
    }
    std::vector<Entry> m_entries;
    size_t m_count = 0;
};

uint32_t boneLimit(const VertexInfluences& influences)
{
    uint32_t limit = 0;
    for (const Influence& influence : influences.entries)
        limit = std::max(limit, influence.bone + 1);
    return limit;
}

BoneSet boneSetOf(uint64_t mask)
{
    BoneSet set;
    set.fill(kUnusedBone);
    for (uint32_t i = 0; mask; mask &= mask - 1)
        set[i++] = uint32_t(__builtin_ctzll(mask));
    return set;
}

// Faces of up to 64 bones: one OR and one table probe per face in the common case.
Status groupFacesByMask(const VertexInfluences& influences, const MeshTopology& mesh, FaceGroups& groups,
                        uint32_t& maxFace)
{
    std::vector<uint64_t> masks(mesh.vertexCount, 0);
    for (uint32_t v = 0; v < mesh.vertexCount; ++v)
        for (const Influence* it = influences.begin(v); it != influences.end(v); ++it)
            masks[v] |= uint64_t(1) << it->bone;
    GroupIndex index(groups);
    MaskCache cache;
    std::vector<Influence> totals;
    maxFace = 0;
    for (uint32_t face = 0; face < mesh.faceCount; ++face) {
        const uint32_t* corners = mesh.indices + 3 * size_t(face);
        if (!cornersInRange(corners, mesh.vertexCount))
            return Status::IndexOutOfRange;
        const uint32_t attribute = mesh.attributes ? mesh.attributes[face] : 0;
        const uint64_t mask = masks[corners[0]] | masks[corners[1]] | masks[corners[2]];
        const uint32_t touched = uint32_t(__builtin_popcountll(mask));
        maxFace = std::max(maxFace, touched);
        if (touched > kMaxBlendMatrices) {
            groups.groupOfFace[face] = index.groupOf(
                GroupKey{attribute, crowdedFaceBones(influences, corners, totals, kMaxBlendMatrices)}, face);
            continue;
        }
        uint32_t* cached = cache.find(mask, attribute);
        if (!cached) {
            cache.insert(mask, attribute, index.groupOf(GroupKey{attribute, boneSetOf(mask)}, face));
            cached = cache.find(mask, attribute);
        }
        groups.groupOfFace[face] = *cached;
    }
    return Status::Ok;
}

// Groups faces by material and (reduced) bone set and finds the most bones any face touches,
// in one pass over the faces.
Status groupFacesByBones(const VertexInfluences& influences, const MeshTopology& mesh, FaceGroups& groups,
                         uint32_t& maxFace)
{
    groups.groupOfFace.resize(mesh.faceCount);
    if (boneLimit(influences) <= 64)
        return groupFacesByMask(influences, mesh, groups, maxFace);
    GroupIndex index(groups);
    std::vector<Influence> totals;
    maxFace = 0;
    for (uint32_t face = 0; face < mesh.faceCount; ++face) {
        const uint32_t* corners = mesh.indices + 3 * size_t(face);
        if (!cornersInRange(corners, mesh.vertexCount))
            return Status::IndexOutOfRange;
        uint32_t touched = 0;
        GroupKey key{mesh.attributes ? mesh.attributes[face] : 0,
                     faceBones(influences, corners, totals, kMaxBlendMatrices, touched)};
        maxFace = std::max(maxFace, touched);
        groups.groupOfFace[face] = index.groupOf(key, face);
    }
    return Status::Ok;
}

// Bones `set` would add to `combination`, or capacity + 1 when they do not fit.
uint32_t bonesAdded(const std::vector<uint32_t>& combination, const BoneSet& set, uint32_t capacity)
{
    uint32_t added = 0;
    for (uint32_t i = 0; i < usedSlots(set); ++i)
        if (!contains(combination, set[i]))
            ++added;
    return combination.size() + added <= capacity ? added : capacity + 1;
}

// First-fit packing of the distinct bone sets, largest first, into combinations of one
// attribute each. Returns the combination of every group.
std::vector<uint32_t> packGroups(const FaceGroups& groups, uint32_t capacity,
                                 std::vector<Combination>& combinations)
{
    std::vector<uint32_t> order(groups.keys.size());
    for (uint32_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        const GroupKey& ka = groups.keys[a];
        const GroupKey& kb = groups.keys[b];
        if (ka.attribute != kb.attribute)
            return ka.attribute < kb.attribute;
        uint32_t na = usedSlots(ka.bones), nb = usedSlots(kb.bones);
        return na != nb ? na > nb : groups.firstFace[a] < groups.firstFace[b];
    });

    std::vector<std::vector<uint32_t>> bones;
    std::vector<uint32_t> combinationOfGroup(groups.keys.size());
    size_t attributeStart = 0;
    for (uint32_t group : order) {
        const GroupKey& key = groups.keys[group];
        if (!combinations.empty() && combinations.back().attribute != key.attribute)
            attributeStart = combinations.size();
        // Only the latest combinations are tried, which keeps packing linear in the number of
        // distinct bone sets on meshes with very many bones.
        constexpr size_t kCandidates = 64;
        const size_t firstCandidate =
            std::max(attributeStart, combinations.size() > kCandidates ? combinations.size() - kCandidates : 0);
        size_t target = combinations.size();
        for (size_t c = firstCandidate; c < combinations.size(); ++c) {
            if (bonesAdded(bones[c], key.bones, capacity) <= capacity) {
                target = c;
                break;
            }
        }
        if (target == combinations.size()) {
            Combination fresh;
            fresh.attribute = key.attribute;
            combinations.push_back(fresh);
            bones.emplace_back();
        }
        for (uint32_t i = 0; i < usedSlots(key.bones); ++i)
            if (!contains(bones[target], key.bones[i]))
                bones[target].push_back(key.bones[i]);
        combinationOfGroup[group] = uint32_t(target);
    }
    for (size_t c = 0; c < combinations.size(); ++c) {
        std::sort(bones[c].begin(), bones[c].end());
        bones[c].resize(capacity, kUnusedBone);
        combinations[c].bones = std::move(bones[c]);
    }
    return combinationOfGroup;
}

// Counting sort of faces by combination, keeping source order inside each.
void orderFaces(const std::vector<uint32_t>& combinationOfFace, BlendLayout& layout)
{
    std::vector<uint32_t> start(layout.combinations.size() + 1, 0);
    for (uint32_t c : combinationOfFace)
        ++start[c + 1];
    for (size_t c = 0; c < layout.combinations.size(); ++c) {
        start[c + 1] += start[c];
        layout.combinations[c].faceStart = start[c];
        layout.combinations[c].faceCount = start[c + 1] - start[c];
    }
    layout.faceRemap.resize(combinationOfFace.size());
    for (uint32_t face = 0; face < combinationOfFace.size(); ++face)
        layout.faceRemap[start[combinationOfFace[face]]++] = face;
}

// Gives every combination its own copy of the vertices its faces use, in first-use order.
void splitVertices(const MeshTopology& mesh, BlendLayout& layout)
{
    std::vector<uint32_t> owner(mesh.vertexCount, kUnusedBone);
    std::vector<uint32_t> newIndex(mesh.vertexCount, 0);
    layout.indices.resize(size_t(mesh.faceCount) * 3);
    layout.vertexRemap.clear();
    layout.vertexRemap.reserve(mesh.vertexCount + mesh.vertexCount / 2);
    for (uint32_t c = 0; c < layout.combinations.size(); ++c) {
        Combination& combination = layout.combinations[c];
        combination.vertexStart = uint32_t(layout.vertexRemap.size());
        for (uint32_t f = combination.faceStart; f < combination.faceStart + combination.faceCount; ++f) {
            const uint32_t* corners = mesh.indices + 3 * size_t(layout.faceRemap[f]);
            for (int corner = 0; corner < 3; ++corner) {
                uint32_t v = corners[corner];
                if (owner[v] != c) {
                    owner[v] = c;
                    newIndex[v] = uint32_t(layout.vertexRemap.size());
                    layout.vertexRemap.push_back(v);
                }
                layout.indices[3 * size_t(f) + corner] = newIndex[v];
            }
        }
        combination.vertexCount = uint32_t(layout.vertexRemap.size()) - combination.vertexStart;
    }
}

void blendWeights(const VertexInfluences& influences, BlendLayout& layout)
{
    const uint32_t slots = layout.influencesPerFace;
    layout.weights.resize(layout.vertexRemap.size() * slots);
    for (const Combination& combination : layout.combinations)
        for (uint32_t v = combination.vertexStart; v < combination.vertexStart + combination.vertexCount; ++v)
            vertexWeights(influences, layout.vertexRemap[v], combination.bones, layout.weights.data() + size_t(v) * slots);
}

}  // namespace

void vertexWeights(const VertexInfluences& influences, uint32_t vertex, const std::vector<uint32_t>& bones,
                   float* weights)
{
    float total = 0.0f;
    for (size_t slot = 0; slot < bones.size(); ++slot) {
        float w = 0.0f;
        if (bones[slot] != kUnusedBone)
            for (const Influence* it = influences.begin(vertex); it != influences.end(vertex); ++it)
                if (it->bone == bones[slot])
                    w += it->weight;
        weights[slot] = w;
        total += w;
    }
    if (total > 0.0f) {
        const float scale = 1.0f / total;
        for (size_t slot = 0; slot < bones.size(); ++slot)
            weights[slot] *= scale;
    } else {
        weights[0] = 1.0f;
    }
}

Status gatherInfluences(const std::vector<BoneWeights>& bones, uint32_t vertexCount,
                        bool ignoreOutOfRange, VertexInfluences& out)
{
    out.offsets.assign(size_t(vertexCount) + 1, 0);
    for (const BoneWeights& bone : bones) {
        for (size_t i = 0; i < bone.vertices.size(); ++i) {
            if (bone.vertices[i] >= vertexCount) {
                if (ignoreOutOfRange)
                    continue;
                out.offsets.clear();
                out.entries.clear();
                return Status::VertexOutOfRange;
            }
            if (bone.weights[i] > 0.0f)
                ++out.offsets[bone.vertices[i] + 1];
        }
    }
    for (uint32_t v = 0; v < vertexCount; ++v)
        out.offsets[v + 1] += out.offsets[v];

    out.entries.resize(out.offsets[vertexCount]);
    std::vector<uint32_t> fill(out.offsets.begin(), out.offsets.end() - 1);
    for (uint32_t b = 0; b < bones.size(); ++b) {
        const BoneWeights& bone = bones[b];
        for (size_t i = 0; i < bone.vertices.size(); ++i)
            if (bone.vertices[i] < vertexCount && bone.weights[i] > 0.0f)
                out.entries[fill[bone.vertices[i]]++] = Influence{b, bone.weights[i]};
    }

    Influence* write = out.entries.data();
    for (uint32_t v = 0; v < vertexCount; ++v) {
        Influence* first = out.entries.data() + out.offsets[v];
        Influence* last = out.entries.data() + out.offsets[v + 1];
        out.offsets[v] = uint32_t(write - out.entries.data());
        write = compactVertex(first, last, write);
    }
    out.offsets[vertexCount] = uint32_t(write - out.entries.data());
    out.entries.resize(out.offsets[vertexCount]);
    return Status::Ok;
}

uint32_t maxVertexInfluences(const std::vector<BoneWeights>& bones)
{
    std::vector<std::pair<uint32_t, uint32_t>> pairs;  // (vertex, bone)
    for (uint32_t b = 0; b < bones.size(); ++b)
        for (size_t i = 0; i < bones[b].vertices.size(); ++i)
            if (bones[b].weights[i] > 0.0f)
                pairs.emplace_back(bones[b].vertices[i], b);
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    uint32_t best = 0;
    for (size_t i = 0; i < pairs.size();) {
        size_t j = i;
        while (j < pairs.size() && pairs[j].first == pairs[i].first)
            ++j;
        best = std::max(best, uint32_t(j - i));
        i = j;
    }
    return best;
}

Status maxFaceInfluences(const VertexInfluences& influences, const uint32_t* indices,
                         uint32_t faceCount, uint32_t& result)
{
    result = 0;
    std::vector<Influence> totals;
    for (uint32_t face = 0; face < faceCount; ++face) {
        totals.clear();
        for (int corner = 0; corner < 3; ++corner) {
            uint32_t v = indices[3 * size_t(face) + corner];
            if (v >= influences.vertexCount())
                return Status::IndexOutOfRange;
            accumulate(influences, v, totals);
        }
        result = std::max(result, uint32_t(totals.size()));
    }
    return Status::Ok;
}

Status buildBlendLayout(const VertexInfluences& influences, const MeshTopology& mesh,
                        BlendLayout& out, bool withWeights)
{
    out = BlendLayout();
    if (influences.vertexCount() != mesh.vertexCount)
        return Status::IndexOutOfRange;
    // Faces are reduced to the most the pipeline can blend; when no face touches that many
    // bones nothing is reduced and the sets are exact.
    FaceGroups groups;
    uint32_t maxFace = 0;
    Status status = groupFacesByBones(influences, mesh, groups, maxFace);
    if (status != Status::Ok)
        return status;
    if (maxFace == 0)
        return Status::NoInfluences;
    out.influencesPerFace = std::min(maxFace, kMaxBlendMatrices);
    std::vector<uint32_t> combinationOfGroup = packGroups(groups, out.influencesPerFace, out.combinations);
    std::vector<uint32_t> combinationOfFace(mesh.faceCount);
    for (uint32_t face = 0; face < mesh.faceCount; ++face)
        combinationOfFace[face] = combinationOfGroup[groups.groupOfFace[face]];
    orderFaces(combinationOfFace, out);
    splitVertices(mesh, out);
    if (withWeights)
        blendWeights(influences, out);
    return Status::Ok;
}

}  // namespace skinblend
