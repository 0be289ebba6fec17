#include "XAnimation.h"

#include "XCompressed.h"
#include "XMaterialList.h"
#include "XStructure.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

// The templates Microsoft's loader knows without being told: the skin and extension sets of
// the SDK headers (the system loader registers only the retained-mode ones).
const char* const kImpliedTemplateSets[] = {XSKINEXP_TEMPLATES, XEXTENSIONS_TEMPLATES};

struct Template {
    std::string name;
    std::string text;
};

std::vector<Template> impliedTemplates()
{
    static const std::string keyword = "template ";
    std::vector<Template> templates;
    for (const char* set : kImpliedTemplateSets) {
        const std::string text(set);
        size_t at = text.find(keyword);
        while (at != std::string::npos) {
            size_t next = text.find(keyword, at + keyword.size());
            size_t nameBegin = text.find_first_not_of(' ', at + keyword.size());
            size_t nameEnd = text.find_first_of(" {", nameBegin);
            templates.push_back({text.substr(nameBegin, nameEnd - nameBegin),
                                 text.substr(at, (next == std::string::npos ? text.size() : next) - at) + "\n"});
            at = next;
        }
    }
    return templates;
}

const size_t kHeaderSize = 16;

bool isAnimationType(const std::string& type)
{
    return type == "AnimationSet" || type == "Animation" || type == "AnimationKey" || type == "AnimationOptions" ||
           type == "AnimTicksPerSecond";
}

enum KeyType { kRotation = 0, kScale = 1, kPosition = 2, kMatrix = 4 };

size_t valuesPerKey(int type)
{
    switch (type) {
    case kRotation:
        return 4;
    case kScale:
    case kPosition:
        return 3;
    case kMatrix:
        return 16;
    default:
        return 0;
    }
}

void addMatrixKey(XAnimation& animation, float time, const double* v)
{
    D3DXMATRIX m;
    for (int i = 0; i < 16; ++i)
        m.m[i / 4][i % 4] = float(v[i]);
    D3DXVECTOR3 s, t;
    D3DXQUATERNION r;
    if (FAILED(D3DXMatrixDecompose(&s, &r, &t, &m)))
        return;
    animation.scale.push_back({time, s});
    animation.rotation.push_back({time, r});
    animation.translation.push_back({time, t});
}

// The file stores w, x, y, z of the rotation that takes the parent frame to the child; D3DX
// matrices rotate row vectors, so the stored quaternion is used conjugated.
D3DXQUATERNION fileRotation(const double* v)
{
    return D3DXQUATERNION(-float(v[1]), -float(v[2]), -float(v[3]), float(v[0]));
}

// A count read from the file, never more than `limit` (and 0 for nonsense such as -1 or NaN).
size_t boundedCount(double value, size_t limit)
{
    if (!(value >= 0))
        return 0;
    return value >= double(limit) ? limit : size_t(value);
}

// "type; count; time; valueCount; values;;, ..." A key whose value count does not fit the type
// is skipped; a key list cut short keeps the keys read so far.
void readKeys(const XObject& key, XAnimation& animation)
{
    const std::vector<double>& n = key.numbers;
    if (n.size() < 2)
        return;
    const int type = int(boundedCount(n[0], 16));
    const size_t expected = valuesPerKey(type);
    const size_t count = boundedCount(n[1], n.size());
    size_t at = 2;
    for (size_t k = 0; k < count && at + 2 <= n.size(); ++k) {
        const float time = float(n[at]);
        const size_t values = boundedCount(n[at + 1], n.size());
        at += 2;
        if (at + values > n.size())
            return;
        const double* v = &n[at];
        at += values;
        if (values != expected || expected == 0)
            continue;
        switch (type) {
        case kRotation:
            animation.rotation.push_back({time, fileRotation(v)});
            break;
        case kScale:
            animation.scale.push_back({time, D3DXVECTOR3(float(v[0]), float(v[1]), float(v[2]))});
            break;
        case kPosition:
            animation.translation.push_back({time, D3DXVECTOR3(float(v[0]), float(v[1]), float(v[2]))});
            break;
        case kMatrix:
            addMatrixKey(animation, time, v);
            break;
        default:
            break;
        }
    }
}

// The animated frame is named by a reference "{ name }" or, in older files, by a Frame child.
std::string animatedFrame(const XObject& animation)
{
    if (!animation.references.empty())
        return animation.references.front();
    for (const XObject& child : animation.children) {
        if (child.type == "Frame")
            return child.name;
    }
    return std::string();
}

void readAnimation(const XObject& object, XAnimationSet& set)
{
    XAnimation animation;
    animation.frameName = animatedFrame(object);
    for (const XObject& child : object.children) {
        if (child.type == "AnimationKey")
            readKeys(child, animation);
        else if (child.type == "AnimationOptions" && !child.numbers.empty() && child.numbers[0] != 0)
            set.open = true;
    }
    if (animation.frameName.empty())
        return;
    // Two animations of one frame in one set cannot both be registered: the first one wins.
    for (const XAnimation& existing : set.animations) {
        if (existing.frameName == animation.frameName)
            return;
    }
    set.animations.push_back(std::move(animation));
}

XAnimationSet readAnimationSet(const XObject& object)
{
    XAnimationSet set;
    set.name = object.name;
    for (const XObject& child : object.children) {
        if (child.type == "Animation")
            readAnimation(child, set);
    }
    return set;
}

uint16_t binaryKeyword(const std::string& word)
{
    static const std::pair<const char*, uint16_t> keywords[] = {
        {"template", 31}, {"WORD", 40},    {"DWORD", 41},  {"FLOAT", 42},   {"DOUBLE", 43},
        {"CHAR", 44},     {"UCHAR", 45},   {"BYTE", 45},   {"SWORD", 46},   {"SDWORD", 47},
        {"void", 48},     {"STRING", 49},  {"UNICODE", 50}, {"CSTRING", 51}, {"array", 52},
    };
    for (const auto& keyword : keywords) {
        if (_stricmp(word.c_str(), keyword.first) == 0)  // the SDK's own templates write "float"
            return keyword.second;
    }
    return 0;
}

// "<3CF169CE-FF7C-44ab-93C0-F78F62D172E2>" as the 16 bytes of a GUID.
void putGuid(std::string& out, const std::string& text)
{
    GUID guid{};
    unsigned parts[11] = {};
    std::sscanf(text.c_str(), "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &parts[0], &parts[1], &parts[2], &parts[3],
                &parts[4], &parts[5], &parts[6], &parts[7], &parts[8], &parts[9], &parts[10]);
    guid.Data1 = parts[0];
    guid.Data2 = uint16_t(parts[1]);
    guid.Data3 = uint16_t(parts[2]);
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = uint8_t(parts[3 + i]);
    appendXWord(out, 5);
    out.append(reinterpret_cast<const char*>(&guid), sizeof guid);
}

// Template declarations in the token encoding of binary X files.
std::string binaryTemplates(const std::string& text)
{
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (std::isspace(static_cast<unsigned char>(c))) {
            ++i;
        } else if (c == '<') {
            size_t close = text.find('>', i);
            if (close == std::string::npos)
                break;
            putGuid(out, text.substr(i + 1, close - i - 1));
            i = close + 1;
        } else if (std::isdigit(static_cast<unsigned char>(c))) {
            size_t end = i;
            while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])))
                ++end;
            appendXWord(out, 3);
            appendXDword(out, uint32_t(std::strtoul(text.substr(i, end - i).c_str(), nullptr, 10)));
            i = end;
        } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            size_t end = i;
            while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
                ++end;
            std::string word = text.substr(i, end - i);
            if (uint16_t keyword = binaryKeyword(word)) {
                appendXWord(out, keyword);
            } else {
                appendXWord(out, 1);
                appendXDword(out, uint32_t(word.size()));
                out += word;
            }
            i = end;
        } else {
            static const std::string punctuation = "{}()[]<>.,;";
            static const uint16_t codes[] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
            size_t which = punctuation.find(c);
            if (which != std::string::npos)
                appendXWord(out, codes[which]);
            ++i;
        }
    }
    return out;
}

// One replacement of a byte range of the file.
struct Edit {
    size_t begin;
    size_t end;
    std::string text;
};

const XObject* topLevelMesh(const XFileOutline& file, const std::string& name)
{
    for (const XObject& object : file.topLevel) {
        if (object.type == "Mesh" && object.name == name)
            return &object;
    }
    return nullptr;
}

bool contains(const Edit& outer, const Edit& inner)
{
    return inner.begin >= outer.begin && inner.end <= outer.end;
}

// The bytes [begin, end) of `data` with the edits among `edits` (sorted, apart) that lie inside.
std::string withEdits(const char* data, size_t begin, size_t end, const std::vector<Edit>& edits)
{
    std::string text;
    size_t at = begin;
    for (const Edit& edit : edits) {
        if (!contains({begin, end, {}}, edit) || edit.begin < at)
            continue;  // outside, or inside one already made
        text.append(data + at, edit.begin - at);
        text += edit.text;
        at = edit.end;
    }
    return text.append(data + at, end - at);
}

std::vector<Edit> materialListEdits(const XFileOutline& file, bool binary)
{
    std::vector<Edit> edits;
    std::string data;
    for (const XMaterialList& entry : file.materialLists) {
        if (faceByFaceMaterialList(entry, binary, data))
            edits.push_back({entry.list.dataBegin, entry.list.dataEnd, data});
    }
    return edits;
}

// Material lists are written out face by face; animation objects go; a frame's "{ CubeMesh }"
// becomes the top-level mesh it names, which then goes from the top level so that it is not
// loaded twice. What lies inside an object that goes is not edited.
std::vector<Edit> editsForSystemLoader(const char* data, bool binary, const XFileOutline& file)
{
    const std::vector<Edit> lists = materialListEdits(file, binary);
    std::vector<Edit> edits, removals;
    for (const XObject& object : file.topLevel) {
        if (isAnimationType(object.type))
            removals.push_back({object.begin, object.end, std::string()});
    }
    const auto removed = [&](const Edit& edit) {
        return std::any_of(removals.begin(), removals.end(), [&](const Edit& gone) { return contains(gone, edit); });
    };
    std::set<const XObject*> inlined;
    for (const XFrameReference& reference : file.frameReferences) {
        const XObject* mesh = topLevelMesh(file, reference.name);
        if (mesh && !removed({reference.begin, reference.end, {}})) {
            edits.push_back({reference.begin, reference.end, withEdits(data, mesh->begin, mesh->end, lists)});
            inlined.insert(mesh);
        }
    }
    for (const XObject& object : file.topLevel) {
        if (inlined.count(&object))
            removals.push_back({object.begin, object.end, std::string()});
    }
    edits.insert(edits.end(), lists.begin(), lists.end());
    edits.erase(std::remove_if(edits.begin(), edits.end(), removed), edits.end());
    edits.insert(edits.end(), removals.begin(), removals.end());
    std::sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    return edits;
}

std::string fileForSystemLoader(const char* data, size_t size, const XFileOutline& file)
{
    const bool binary = isBinaryXFile(data, size);
    std::string text = withEdits(data, 0, size, editsForSystemLoader(data, binary, file));
    static const std::vector<Template> implied = impliedTemplates();
    std::string templates;
    for (const Template& entry : implied) {
        if (std::find(file.declaredTemplates.begin(), file.declaredTemplates.end(), entry.name) ==
            file.declaredTemplates.end())
            templates += entry.text;
    }
    text.insert(kHeaderSize, binary ? binaryTemplates(templates) : "\n" + templates);
    return text;
}

ID3DXKeyframedAnimationSet* createKeyframedSet(const XAnimationSet& source, double ticksPerSecond)
{
    ID3DXKeyframedAnimationSet* set = nullptr;
    // A set whose animations all went still plays, empty: room for one animation keeps it valid.
    const UINT room = UINT(std::max<size_t>(source.animations.size(), 1));
    if (FAILED(D3DXCreateKeyframedAnimationSet(source.name.c_str(), ticksPerSecond,
                                               source.open ? D3DXPLAY_ONCE : D3DXPLAY_LOOP, room, 0, nullptr, &set)))
        return nullptr;
    for (const XAnimation& a : source.animations) {
        set->RegisterAnimationSRTKeys(a.frameName.c_str(), UINT(a.scale.size()), UINT(a.rotation.size()),
                                      UINT(a.translation.size()), a.scale.data(), a.rotation.data(),
                                      a.translation.data(), nullptr);
    }
    return set;
}

} // namespace

XPreparation prepareXFile(const char* data, size_t size, XAnimationContent& content)
{
    std::string plain;
    if (isCompressedXFile(data, size)) {
        if (!decompressXFile(data, size, plain))
            return XPreparation::Damaged;
        data = plain.data();
        size = plain.size();
    }
    if (!isTextXFile(data, size) && !isBinaryXFile(data, size))
        return XPreparation::Foreign;
    XFileOutline file;
    if (!readXStructure(data, size, isAnimationType, file))
        return XPreparation::Damaged;
    for (const XObject& object : file.topLevel) {
        if (object.type == "AnimTicksPerSecond" && !object.numbers.empty() && object.numbers[0] > 0)
            content.ticksPerSecond = object.numbers[0];
        else if (object.type == "AnimationSet")
            content.sets.push_back(readAnimationSet(object));
    }
    content.loadableFile = fileForSystemLoader(data, size, file);
    return XPreparation::Ready;
}

ID3DXAnimationController* createXAnimationController(const XAnimationContent& content, D3DXFRAME* root)
{
    if (content.sets.empty())
        return nullptr;
    std::vector<ID3DXKeyframedAnimationSet*> sets;
    std::set<std::string> animatedFrames;
    for (const XAnimationSet& source : content.sets) {
        if (ID3DXKeyframedAnimationSet* set = createKeyframedSet(source, content.ticksPerSecond))
            sets.push_back(set);
        for (const XAnimation& a : source.animations) {
            if (root && D3DXFrameFind(root, a.frameName.c_str()))
                animatedFrames.insert(a.frameName);
        }
    }
    const UINT kTracks = 2;
    const UINT kEvents = 30;
    // A maximum of 0 makes no controller: a file whose keys drive no frame still gets one.
    const UINT outputs = UINT(std::max<size_t>(animatedFrames.size(), 1));
    const UINT setRoom = UINT(std::max<size_t>(sets.size(), 1));
    ID3DXAnimationController* controller = nullptr;
    if (SUCCEEDED(D3DXCreateAnimationController(outputs, setRoom, kTracks, kEvents, &controller)) && controller) {
        for (const std::string& name : animatedFrames) {
            D3DXFRAME* frame = D3DXFrameFind(root, name.c_str());
            controller->RegisterAnimationOutput(name.c_str(), &frame->TransformationMatrix, nullptr, nullptr, nullptr);
        }
        for (ID3DXKeyframedAnimationSet* set : sets)
            controller->RegisterAnimationSet(set);
        if (!sets.empty())
            controller->SetTrackAnimationSet(0, sets.front());
    }
    for (ID3DXKeyframedAnimationSet* set : sets)
        set->Release();
    return controller;
}
