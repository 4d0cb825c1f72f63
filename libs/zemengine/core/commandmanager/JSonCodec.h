#pragma once
// Wire forms of remote call values: Decode reads a JSON value into a typed one and says
// what it expected when it can't; Encode builds the JSON value of a result. Every
// access checks the JSON type first.
#include <cfloat>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/InstanceManager.h"
#include "zemengine/core/commandmanager/RPCTypes.h"
#include "zemengine/core/json/Json.h"

namespace ZemEngine::JsonCodec
{
    template <class V>
    concept Vector2Like = requires(V v) {
        v.x;
        v.y;
    } && !requires(V v) { v.z; };
    template <class V>
    concept Vector3Like = requires(V v) {
        v.x;
        v.y;
        v.z;
    } && !requires(V v) { v.w; };
    template <class V>
    concept Vector4Like = requires(V v) {
        v.x;
        v.y;
        v.z;
        v.w;
    };
    // A class that clients hold by instance id.
    template <class T>
    concept RemoteClass = std::is_base_of_v<CClientRefCount, T> && requires { typename T::StubType; };
    template <class T>
    concept Integer = std::integral<T> && !std::same_as<T, bool>;

    typedef Json::PoolAllocator Allocator;

    // Records the first thing that failed; always returns false.
    inline bool Fail(const char*& expected, const char* what)
    {
        if (!expected) expected = what;
        return false;
    }

    // ---- decoding ----------------------------------------------------------------

    inline bool Decode(const Json::Value& v, bool& out, const char*& expected)
    {
        if (!v.IsBool()) return Fail(expected, "a boolean");
        out = v.GetBool();
        return true;
    }

    template <Integer T>
    bool Decode(const Json::Value& v, T& out, const char*& expected)
    {
        if constexpr (std::is_signed_v<T>)
        {
            if (!v.IsInt64()) return Fail(expected, "an integer");
            const int64_t x = v.GetInt64();
            if (x < static_cast<int64_t>(std::numeric_limits<T>::min()) ||
                x > static_cast<int64_t>(std::numeric_limits<T>::max()))
                return Fail(expected, "an integer in range");
            out = static_cast<T>(x);
        }
        else
        {
            if (!v.IsUint64()) return Fail(expected, "a non-negative integer");
            const uint64_t x = v.GetUint64();
            if (x > static_cast<uint64_t>(std::numeric_limits<T>::max())) return Fail(expected, "an integer in range");
            out = static_cast<T>(x);
        }
        return true;
    }

    template <class E>
        requires std::is_enum_v<E>
    bool Decode(const Json::Value& v, E& out, const char*& expected)
    {
        if (!v.IsInt()) return Fail(expected, "an integer (enumeration)");
        out = static_cast<E>(v.GetInt());
        return true;
    }

    inline bool Decode(const Json::Value& v, double& out, const char*& expected)
    {
        if (!v.IsNumber()) return Fail(expected, "a number");
        out = v.GetDouble();
        return true;
    }

    inline bool Decode(const Json::Value& v, float& out, const char*& expected)
    {
        if (!v.IsNumber()) return Fail(expected, "a number");
        const double d = v.GetDouble();
        if (std::fabs(d) > static_cast<double>(FLT_MAX)) return Fail(expected, "a number in float range");
        out = static_cast<float>(d);
        return true;
    }

    // The text stays owned by the document; null reads as the empty text.
    inline bool Decode(const Json::Value& v, const char*& out, const char*& expected)
    {
        if (v.IsNull())
        {
            out = "";
            return true;
        }
        if (!v.IsString()) return Fail(expected, "a string or null");
        out = v.GetString();
        return true;
    }

    inline bool Decode(const Json::Value& v, Common::String& out, const char*& expected)
    {
        if (v.IsNull())
        {
            out = "";
            return true;
        }
        if (!v.IsString()) return Fail(expected, "a string or null");
        if (v.GetStringLength() >= Common::String::kCapacity) return Fail(expected, "a string under 1024 bytes");
        out.Assign(v.GetString(), v.GetStringLength());
        return true;
    }

    // Reads member `name` of object `v` into `out`.
    template <class T>
    bool DecodeMember(const Json::Value& v, const char* name, T& out, const char*& expected, const char* what);

    template <Vector2Like V>
    bool Decode(const Json::Value& v, V& out, const char*& expected)
    {
        const char* what = "a vector {\"x\", \"y\"}";
        return DecodeMember(v, "x", out.x, expected, what) && DecodeMember(v, "y", out.y, expected, what);
    }

    template <Vector3Like V>
    bool Decode(const Json::Value& v, V& out, const char*& expected)
    {
        const char* what = "a vector {\"x\", \"y\", \"z\"}";
        return DecodeMember(v, "x", out.x, expected, what) && DecodeMember(v, "y", out.y, expected, what) &&
               DecodeMember(v, "z", out.z, expected, what);
    }

    template <Vector4Like V>
    bool Decode(const Json::Value& v, V& out, const char*& expected)
    {
        const char* what = "a quaternion {\"x\", \"y\", \"z\", \"w\"}";
        return DecodeMember(v, "x", out.x, expected, what) && DecodeMember(v, "y", out.y, expected, what) &&
               DecodeMember(v, "z", out.z, expected, what) && DecodeMember(v, "w", out.w, expected, what);
    }

    bool Decode(const Json::Value& v, RPC::RPCTransform& out, const char*& expected);
    bool Decode(const Json::Value& v, RPC::BoundingSphere& out, const char*& expected);
    bool Decode(const Json::Value& v, RPC::stBoneEditingParams& out, const char*& expected);
    bool Decode(const Json::Value& v, RPC::RUserID& out, const char*& expected);

    template <RemoteClass T>
    bool Decode(const Json::Value& v, T*& out, const char*& expected);

    template <class T, class I>
    bool Decode(const Json::Value& v, ZemRenderer::TArray<T, I>& out, const char*& expected);

    template <class P>
    bool Decode(const Json::Value& v, RPC::EditInfoT<P>& out, const char*& expected);

    template <class T>
    bool DecodeMember(const Json::Value& v, const char* name, T& out, const char*& expected, const char* what)
    {
        const Json::Value* member = Json::FindMember(v, name);
        if (!member) return Fail(expected, what);
        return Decode(*member, out, expected);
    }

    // A reference is {"InstanceID": id} or null. An id that names no live object fails
    // the read, after the resolver's report: the call must not run on a guess.
    template <RemoteClass T>
    bool Decode(const Json::Value& v, T*& out, const char*& expected)
    {
        typedef std::remove_const_t<T> Class;
        typedef typename Class::StubType Stub;
        if (v.IsNull())
        {
            out = nullptr;
            return true;
        }
        const Json::Value* id = Json::FindMember(v, "InstanceID");
        if (!id || !id->IsUint()) return Fail(expected, "a reference {\"InstanceID\": id} or null");
        Stub* object = nullptr;
        if constexpr (Class::kIsSingleton)
            object = CSingletonManager<Stub>::GetInstance();
        else
            object = CInstanceManager<Stub>::GetInstance(id->GetUint());
        if (!object) return Fail(expected, "a reference to a live object");
        if constexpr (std::is_same_v<Class, Stub>)
            out = object;
        else
            out = dynamic_cast<Class*>(object);
        if (!out) return Fail(expected, "a reference to an object of the right class");
        return true;
    }

    template <class T, class I>
    bool Decode(const Json::Value& v, ZemRenderer::TArray<T, I>& out, const char*& expected)
    {
        if (!v.IsArray()) return Fail(expected, "an array");
        out.Clear();
        if (v.Size() > static_cast<rapidjson::SizeType>(std::numeric_limits<I>::max()) || !out.Reserve(static_cast<I>(v.Size())))
            return Fail(expected, "a shorter array");
        for (const Json::Value& element : v.GetArray())
            if (!Decode(element, out.Add(), expected)) return false;
        return true;
    }

    template <class P>
    bool Decode(const Json::Value& v, RPC::EditInfoT<P>& out, const char*& expected)
    {
        const char* what = "an EditInfo {\"Transform\", \"Position\", \"GizmoFlags\", \"EType\"}";
        if (!DecodeMember(v, "Transform", out.m_kTransform, expected, what) ||
            !DecodeMember(v, "Position", out.m_kPosition, expected, what) ||
            !DecodeMember(v, "GizmoFlags", out.m_uGizmoFlags, expected, what) ||
            !DecodeMember(v, "EType", out.m_iEType, expected, what))
            return false;
        out.m_pPrefab = nullptr;
        const Json::Value* prefab = Json::FindMember(v, "Prefab");
        return !prefab || Decode(*prefab, out.m_pPrefab, expected);
    }

    // ---- encoding ----------------------------------------------------------------
    // `nonFinite` is raised when a NaN or an infinity had to be written as null: JSON
    // has no text for them.

    inline Json::Value Encode(bool b, Allocator&, bool&) { return Json::Value(b); }

    template <Integer T>
    Json::Value Encode(T x, Allocator&, bool&)
    {
        if constexpr (std::is_signed_v<T>)
        {
            if constexpr (sizeof(T) <= sizeof(int)) return Json::Value(static_cast<int>(x));
            else return Json::Value(static_cast<int64_t>(x));
        }
        else
        {
            if constexpr (sizeof(T) <= sizeof(unsigned)) return Json::Value(static_cast<unsigned>(x));
            else return Json::Value(static_cast<uint64_t>(x));
        }
    }

    template <class E>
        requires std::is_enum_v<E>
    Json::Value Encode(E e, Allocator&, bool&)
    {
        return Json::Value(static_cast<int>(e));
    }

    inline Json::Value Encode(double d, Allocator&, bool& nonFinite)
    {
        if (!std::isfinite(d))
        {
            nonFinite = true;
            return Json::Value(rapidjson::kNullType);
        }
        return Json::Value(d);
    }

    // A float goes out as a double.
    inline Json::Value Encode(float f, Allocator& a, bool& nonFinite) { return Encode(static_cast<double>(f), a, nonFinite); }

    inline Json::Value Encode(const char* text, Allocator& a, bool&)
    {
        return text ? Json::Value(text, a) : Json::Value("", a);
    }

    inline Json::Value Encode(const Common::String& text, Allocator& a, bool&)
    {
        return Json::Value(text.c_str(), static_cast<rapidjson::SizeType>(text.length()), a);
    }

    template <Vector2Like V>
    Json::Value Encode(const V& v, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("x", Encode(v.x, a, nonFinite), a);
        o.AddMember("y", Encode(v.y, a, nonFinite), a);
        return o;
    }

    template <Vector3Like V>
    Json::Value Encode(const V& v, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("x", Encode(v.x, a, nonFinite), a);
        o.AddMember("y", Encode(v.y, a, nonFinite), a);
        o.AddMember("z", Encode(v.z, a, nonFinite), a);
        return o;
    }

    template <Vector4Like V>
    Json::Value Encode(const V& v, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("x", Encode(v.x, a, nonFinite), a);
        o.AddMember("y", Encode(v.y, a, nonFinite), a);
        o.AddMember("z", Encode(v.z, a, nonFinite), a);
        o.AddMember("w", Encode(v.w, a, nonFinite), a);
        return o;
    }

    Json::Value Encode(const RPC::RPCTransform& t, Allocator& a, bool& nonFinite);
    Json::Value Encode(const RPC::BoundingSphere& s, Allocator& a, bool& nonFinite);
    Json::Value Encode(const RPC::stBoneEditingParams& p, Allocator& a, bool& nonFinite);
    Json::Value Encode(const RPC::RUserID& id, Allocator& a, bool& nonFinite);

    template <RemoteClass T>
    Json::Value Encode(T* object, Allocator& a, bool& nonFinite);
    template <class T, class I>
    Json::Value Encode(const ZemRenderer::TArray<T, I>& array, Allocator& a, bool& nonFinite);
    template <class P>
    Json::Value Encode(const RPC::EditInfoT<P>& info, Allocator& a, bool& nonFinite);

    // A reference counts one more client reference each time it is written.
    template <RemoteClass T>
    Json::Value Encode(T* object, Allocator& a, bool&)
    {
        typedef std::remove_const_t<T> Class;
        typedef typename Class::StubType Stub;
        if (!object) return Json::Value(rapidjson::kNullType);
        Class* target = const_cast<Class*>(object);
        unsigned int id = 0;
        if constexpr (!Class::kIsSingleton)
        {
            id = CInstanceManager<Stub>::GetInstanceID(static_cast<Stub*>(target));
            if (!ZEM_ASSERT(id != CPointerResolver::kInvalidID, "result object is not a registered instance"))
                return Json::Value(rapidjson::kNullType);
        }
        target->AddRef();
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("InstanceID", Json::Value(id), a);
        return o;
    }

    template <class T, class I>
    Json::Value Encode(const ZemRenderer::TArray<T, I>& array, Allocator& a, bool& nonFinite)
    {
        Json::Value out(rapidjson::kArrayType);
        out.Reserve(static_cast<rapidjson::SizeType>(array.GetSize()), a);
        for (const T& element : array) out.PushBack(Encode(element, a, nonFinite), a);
        return out;
    }

    template <class P>
    Json::Value Encode(const RPC::EditInfoT<P>& info, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Transform", Encode(info.m_kTransform, a, nonFinite), a);
        o.AddMember("Position", Encode(info.m_kPosition, a, nonFinite), a);
        o.AddMember("GizmoFlags", Encode(info.m_uGizmoFlags, a, nonFinite), a);
        o.AddMember("EType", Encode(info.m_iEType, a, nonFinite), a);
        if (info.m_pPrefab) o.AddMember("Prefab", Encode(info.m_pPrefab, a, nonFinite), a);
        return o;
    }
}
