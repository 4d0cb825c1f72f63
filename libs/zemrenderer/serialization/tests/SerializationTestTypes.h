#pragma once
// A small object graph with every kind of field the serializer moves: scalars, blocks,
// shared and null pointers, counted arrays, text and polymorphic objects.
#include <cstring>
#include <vector>

#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer::SerializationTest
{
    struct Vec4
    {
        float x, y, z, w;
    };
    struct Tag7
    {
        char c[7];
    };

    struct Leaf
    {
        int iValue = 0;
        short sSmall = 0;
        Leaf* pNext = nullptr;
        int iPostLoads = 0;
        static inline std::vector<int>* s_pVisits = nullptr;

        void Serialize(Serializer& s)
        {
            if (s_pVisits) s_pVisits->push_back(iValue);
            s.Serialize(iValue);
            s.Serialize(sSmall);
            s.SerializePointer(pNext);
        }
        void PostLoad(SerializationManager&) { ++iPostLoads; }
    };

    class Shape : public BaseObject
    {
    public:
        virtual void Serialize(Serializer& s) { s.Serialize(m_fScale); }
        float m_fScale = 1.0f;
    };

    class Circle : public Shape
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Circle")
        unsigned int GetClassId() const override { return GetStaticClassId(); }
        void Serialize(Serializer& s) override
        {
            Shape::Serialize(s);
            s.Serialize(m_dRadius);
            s.SerializePointer(m_pCenter);
        }
        ~Circle() override { MEM_DELETE(m_pCenter); }
        double m_dRadius = 0;
        Leaf* m_pCenter = nullptr;
    };

    class Square : public Shape
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Square")
        unsigned int GetClassId() const override { return GetStaticClassId(); }
        void Serialize(Serializer& s) override
        {
            Shape::Serialize(s);
            s.Serialize(m_kCorner);
        }
        Vec4 m_kCorner{};
    };

    struct Graph
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Graph")
        unsigned int uiId = 0;
        double dReal = 0;
        bool bFlag = false;
        unsigned long long uiBig = 0;
        Vec4 kVector{};
        Tag7 kTag{};
        Leaf* pFirst = nullptr;
        Leaf* pSecond = nullptr;  // shares pFirst's object
        Leaf* pNone = nullptr;
        Leaf* pLeaves = nullptr;
        unsigned int uiLeafCount = 0;
        Leaf* pIntoLeaves = nullptr;  // the same key as pLeaves
        char* szName = nullptr;
        unsigned char* pBytes = nullptr;
        unsigned int uiByteCount = 0;
        Shape* pShape = nullptr;
        Shape* pSameShape = nullptr;
        Shape* pNoShape = nullptr;

        void Serialize(Serializer& s)
        {
            s.Serialize(uiId);
            s.Serialize(dReal);
            s.Serialize(bFlag);
            s.Serialize(uiBig);
            s.Serialize(kVector);
            s.Serialize(kTag);
            s.SerializePointer(pFirst);
            s.SerializePointer(pSecond);
            s.SerializePointer(pNone);
            s.SerializeArray(pLeaves, uiLeafCount);
            s.SerializePointer(pIntoLeaves);
            s.SerializeText(szName);
            s.SerializeArray(pBytes, uiByteCount);
            s.SerializePointer(pShape);
            s.SerializePointer(pSameShape);
            s.SerializePointer(pNoShape);
        }

        // Frees what a successful read made.
        void Release()
        {
            MEM_DELETE(pFirst);
            if (pLeaves)
                for (unsigned int i = 0; i < uiLeafCount; ++i) MEM_DELETE(pLeaves[i].pNext);
            SerializationManager::FreeArray(pLeaves);
            SerializationManager::FreeArray(szName);
            SerializationManager::FreeArray(pBytes);
            DeleteBaseObject(pShape);
            *this = Graph();
        }
    };

    inline void RegisterTestClasses()
    {
        ClassFactory::GetInstance()->Register<Circle>();
        ClassFactory::GetInstance()->Register<Square>();
    }

    // A graph made by hand, freed by FreeBuilt.
    inline Graph BuildGraph()
    {
        Graph g;
        g.uiId = 0x11223344;
        g.dReal = -2.5;
        g.bFlag = true;
        g.uiBig = 0x0102030405060708ull;
        g.kVector = {1.0f, 2.0f, 3.0f, 4.0f};
        std::memcpy(g.kTag.c, "TAG7abc", 7);
        g.pFirst = MEM_NEW(Leaf);
        g.pFirst->iValue = 7;
        g.pFirst->sSmall = -3;
        g.pSecond = g.pFirst;
        g.uiLeafCount = 3;
        g.pLeaves = SerializationManager::AllocateArray<Leaf>(3);
        for (unsigned int i = 0; i < 3; ++i) g.pLeaves[i].iValue = 100 + static_cast<int>(i);
        g.pLeaves[2].pNext = MEM_NEW(Leaf);
        g.pLeaves[2].pNext->iValue = 999;
        g.pIntoLeaves = g.pLeaves;
        g.szName = SerializationManager::AllocateArray<char>(6);
        std::memcpy(g.szName, "graph", 6);
        g.uiByteCount = 2;
        g.pBytes = SerializationManager::AllocateArray<unsigned char>(2);
        g.pBytes[0] = 0xAB;
        g.pBytes[1] = 0xCD;
        Circle* c = MEM_NEW(Circle);
        c->m_dRadius = 4.25;
        c->m_fScale = 0.5f;
        c->m_pCenter = MEM_NEW(Leaf);
        c->m_pCenter->iValue = 55;
        g.pShape = c;
        g.pSameShape = c;
        return g;
    }
}
