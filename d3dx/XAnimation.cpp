#include "XAnimation.h"

#include "XText.h"

#include <algorithm>
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

// "type; count; time; valueCount; values;;, ..." A key whose value count does not fit the type
// is skipped; a key list cut short keeps the keys read so far.
void readKeys(const XObject& key, XAnimation& animation)
{
    const std::vector<double>& n = key.numbers;
    if (n.size() < 2)
        return;
    const int type = int(n[0]);
    const size_t expected = valuesPerKey(type);
    const size_t count = size_t(std::max(0.0, n[1]));
    size_t at = 2;
    for (size_t k = 0; k < count && at + 2 <= n.size(); ++k) {
        const float time = float(n[at]);
        const size_t values = size_t(std::max(0.0, n[at + 1]));
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

std::string loadableText(const char* data, size_t size, const XTextFile& file)
{
    std::string text(data, size);
    for (const XObject& object : file.topLevel) {
        if (isAnimationType(object.type))
            std::fill(text.begin() + object.begin, text.begin() + object.end, ' ');
    }
    static const std::vector<Template> implied = impliedTemplates();
    std::string templates;
    for (const Template& entry : implied) {
        if (std::find(file.declaredTemplates.begin(), file.declaredTemplates.end(), entry.name) ==
            file.declaredTemplates.end())
            templates += entry.text;
    }
    text.insert(kHeaderSize, "\n" + templates);
    return text;
}

ID3DXKeyframedAnimationSet* createKeyframedSet(const XAnimationSet& source, double ticksPerSecond)
{
    ID3DXKeyframedAnimationSet* set = nullptr;
    if (FAILED(D3DXCreateKeyframedAnimationSet(source.name.c_str(), ticksPerSecond,
                                               source.open ? D3DXPLAY_ONCE : D3DXPLAY_LOOP,
                                               UINT(source.animations.size()), 0, nullptr, &set)))
        return nullptr;
    for (const XAnimation& a : source.animations) {
        set->RegisterAnimationSRTKeys(a.frameName.c_str(), UINT(a.scale.size()), UINT(a.rotation.size()),
                                      UINT(a.translation.size()), a.scale.data(), a.rotation.data(),
                                      a.translation.data(), nullptr);
    }
    return set;
}

} // namespace

bool prepareXText(const char* data, size_t size, XAnimationContent& content)
{
    XTextFile file;
    if (!isTextXFile(data, size) || !readXText(data, size, isAnimationType, file))
        return false;
    for (const XObject& object : file.topLevel) {
        if (object.type == "AnimTicksPerSecond" && !object.numbers.empty() && object.numbers[0] > 0)
            content.ticksPerSecond = object.numbers[0];
        else if (object.type == "AnimationSet")
            content.sets.push_back(readAnimationSet(object));
    }
    content.loadableText = loadableText(data, size, file);
    return true;
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
    ID3DXAnimationController* controller = nullptr;
    if (SUCCEEDED(D3DXCreateAnimationController(UINT(animatedFrames.size()), UINT(sets.size()), kTracks, kEvents,
                                                &controller))) {
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
