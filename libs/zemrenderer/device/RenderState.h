#pragma once
// The packed render state: every fixed-function setting of a draw in one 64-bit word, so
// that states are compared, hashed and cached as integers. A mask word of the same layout
// says which fields a description gave; the device fills the others from Default().
//
//   bit  0      Wireframe            bit 11      StencilEnable
//   bit  1      CullMode (back)      bits 12-15  StencilMode code
//   bit  2      FrontCCW             bit 16      FixedAlphaOp
//   bit  3      Scissor              bit 17      Alpha2Coverage
//   bit  4      Multisample          bits 18-53  BlendMode: 4 targets x (source, destination,
//   bit  5      DepthEnable                      operation), 3 bits each, target 0 lowest
//   bit  6      DepthWrite           bits 54-61  WriteMask: 2 values of 4 bits (R=1 G=2 B=4 A=8)
//   bits 7-10   DepthFunc code       bits 62-63  WriteMaskExt, in the mask word only
#include <cstdint>

namespace ZemRenderer
{
    namespace RenderStateBits
    {
        constexpr unsigned kWireframe = 0;
        constexpr unsigned kCullMode = 1;
        constexpr unsigned kFrontCCW = 2;
        constexpr unsigned kScissor = 3;
        constexpr unsigned kMultisample = 4;
        constexpr unsigned kDepthEnable = 5;
        constexpr unsigned kDepthWrite = 6;
        constexpr unsigned kDepthFunc = 7;  // 4 bits
        constexpr unsigned kStencilEnable = 11;
        constexpr unsigned kStencilMode = 12;  // 4 bits
        constexpr unsigned kFixedAlphaOp = 16;
        constexpr unsigned kAlpha2Coverage = 17;
        constexpr unsigned kBlendMode = 18;  // 36 bits
        constexpr unsigned kBlendTargetBits = 9;
        constexpr unsigned kBlendTargets = 4;
        constexpr unsigned kWriteMask = 54;  // 2 x 4 bits
        constexpr unsigned kWriteMaskExt = 62;  // 2 bits, mask word only
    }

    // Codes of "DepthFunc"; the order is that of the comparison functions of the device.
    enum class ComparisonFunc : uint8_t
    {
        Never = 0,
        Less = 1,
        Equal = 2,
        LessEqual = 3,
        Greater = 4,
        NotEqual = 5,
        GreaterEqual = 6,
        Always = 7,
    };

    enum class StencilMode : uint8_t
    {
        None = 0,
        DecalRead = 1,
        DecalWrite = 2,
        NoDepthClip = 3,
    };

    enum class BlendType : uint8_t
    {
        Zero = 0,
        One = 1,
        SrcColor = 2,
        InvSrcColor = 3,
        SrcAlpha = 4,
        InvSrcAlpha = 5,
    };

    enum class BlendOp : uint8_t
    {
        Add = 0,
        Substract = 1,
        RevSubstract = 2,
        Min = 3,
        Max = 4,
    };

    struct BlendModeDesc
    {
        BlendType eSource = BlendType::One;
        BlendType eDestination = BlendType::Zero;
        BlendOp eOperation = BlendOp::Add;
    };

    // A value type over the word; setters return *this so states read as one expression.
    class CRenderState
    {
    public:
        constexpr CRenderState() = default;
        constexpr explicit CRenderState(uint64_t value) : m_uValue(value) {}

        constexpr uint64_t GetValue() const { return m_uValue; }
        constexpr bool operator==(const CRenderState& other) const { return m_uValue == other.m_uValue; }

        // Every bit a description can give, the mask word of a complete state.
        static constexpr uint64_t kFullMask = ~0ull >> 2;
        static constexpr uint64_t kWriteMaskExtBits = 3ull << RenderStateBits::kWriteMaskExt;

        // What a draw gets for every field its description left out: back faces culled,
        // clockwise front, depth test LESS with writes, no blending, all channels written.
        static constexpr CRenderState Default()
        {
            CRenderState s;
            s.SetCullMode(true).SetDepthEnable(true).SetDepthWrite(true).SetDepthFunc(ComparisonFunc::Less);
            for (unsigned t = 0; t < RenderStateBits::kBlendTargets; ++t) s.SetBlendMode(t, BlendModeDesc{});
            return s.SetWriteMask(0, 15).SetWriteMask(1, 15);
        }

        // The given fields of `state` over Default() for the others.
        static constexpr CRenderState Merge(uint64_t state, uint64_t mask)
        {
            mask &= kFullMask;
            return CRenderState((state & mask) | (Default().GetValue() & ~mask & kFullMask));
        }

        constexpr bool GetWireframe() const { return Bit(RenderStateBits::kWireframe); }
        constexpr bool GetCullMode() const { return Bit(RenderStateBits::kCullMode); }
        constexpr bool GetFrontCCW() const { return Bit(RenderStateBits::kFrontCCW); }
        constexpr bool GetScissor() const { return Bit(RenderStateBits::kScissor); }
        constexpr bool GetMultisample() const { return Bit(RenderStateBits::kMultisample); }
        constexpr bool GetDepthEnable() const { return Bit(RenderStateBits::kDepthEnable); }
        constexpr bool GetDepthWrite() const { return Bit(RenderStateBits::kDepthWrite); }
        constexpr uint32_t GetDepthFuncCode() const { return Field(RenderStateBits::kDepthFunc, 4); }
        constexpr bool GetStencilEnable() const { return Bit(RenderStateBits::kStencilEnable); }
        constexpr uint32_t GetStencilModeCode() const { return Field(RenderStateBits::kStencilMode, 4); }
        constexpr bool GetFixedAlphaOp() const { return Bit(RenderStateBits::kFixedAlphaOp); }
        constexpr bool GetAlpha2Coverage() const { return Bit(RenderStateBits::kAlpha2Coverage); }
        // Raw codes of target t's (source, destination, operation).
        constexpr uint32_t GetBlendSourceCode(unsigned t) const { return Field(BlendShift(t), 3); }
        constexpr uint32_t GetBlendDestinationCode(unsigned t) const { return Field(BlendShift(t) + 3, 3); }
        constexpr uint32_t GetBlendOpCode(unsigned t) const { return Field(BlendShift(t) + 6, 3); }
        constexpr uint32_t GetBlendBits(unsigned t) const { return Field(BlendShift(t), 9); }
        // Value 0 or 1 of "WriteMask".
        constexpr uint32_t GetWriteMask(unsigned index) const
        {
            return Field(RenderStateBits::kWriteMask + 4 * (index & 1), 4);
        }

        constexpr CRenderState& SetWireframe(bool v) { return SetBit(RenderStateBits::kWireframe, v); }
        constexpr CRenderState& SetCullMode(bool v) { return SetBit(RenderStateBits::kCullMode, v); }
        constexpr CRenderState& SetFrontCCW(bool v) { return SetBit(RenderStateBits::kFrontCCW, v); }
        constexpr CRenderState& SetScissor(bool v) { return SetBit(RenderStateBits::kScissor, v); }
        constexpr CRenderState& SetMultisample(bool v) { return SetBit(RenderStateBits::kMultisample, v); }
        constexpr CRenderState& SetDepthEnable(bool v) { return SetBit(RenderStateBits::kDepthEnable, v); }
        constexpr CRenderState& SetDepthWrite(bool v) { return SetBit(RenderStateBits::kDepthWrite, v); }
        constexpr CRenderState& SetDepthFunc(ComparisonFunc f)
        {
            return SetField(RenderStateBits::kDepthFunc, 4, static_cast<uint32_t>(f));
        }
        constexpr CRenderState& SetStencilEnable(bool v) { return SetBit(RenderStateBits::kStencilEnable, v); }
        constexpr CRenderState& SetStencilMode(StencilMode m)
        {
            return SetField(RenderStateBits::kStencilMode, 4, static_cast<uint32_t>(m));
        }
        constexpr CRenderState& SetFixedAlphaOp(bool v) { return SetBit(RenderStateBits::kFixedAlphaOp, v); }
        constexpr CRenderState& SetAlpha2Coverage(bool v) { return SetBit(RenderStateBits::kAlpha2Coverage, v); }
        constexpr CRenderState& SetBlendMode(unsigned t, const BlendModeDesc& d)
        {
            SetField(BlendShift(t), 3, static_cast<uint32_t>(d.eSource));
            SetField(BlendShift(t) + 3, 3, static_cast<uint32_t>(d.eDestination));
            return SetField(BlendShift(t) + 6, 3, static_cast<uint32_t>(d.eOperation));
        }
        // The same blend on every target.
        constexpr CRenderState& SetBlendModeAll(const BlendModeDesc& d)
        {
            for (unsigned t = 0; t < RenderStateBits::kBlendTargets; ++t) SetBlendMode(t, d);
            return *this;
        }
        constexpr CRenderState& SetWriteMask(unsigned index, uint32_t channels)
        {
            return SetField(RenderStateBits::kWriteMask + 4 * (index & 1), 4, channels);
        }

    private:
        static constexpr unsigned BlendShift(unsigned t)
        {
            return RenderStateBits::kBlendMode + RenderStateBits::kBlendTargetBits * (t & 3);
        }
        constexpr bool Bit(unsigned bit) const { return (m_uValue >> bit) & 1u; }
        constexpr uint32_t Field(unsigned shift, unsigned bits) const
        {
            return static_cast<uint32_t>((m_uValue >> shift) & ((1ull << bits) - 1));
        }
        constexpr CRenderState& SetBit(unsigned bit, bool v) { return SetField(bit, 1, v ? 1u : 0u); }
        constexpr CRenderState& SetField(unsigned shift, unsigned bits, uint32_t v)
        {
            const uint64_t fieldMask = ((1ull << bits) - 1) << shift;
            m_uValue = (m_uValue & ~fieldMask) | ((static_cast<uint64_t>(v) << shift) & fieldMask);
            return *this;
        }

        uint64_t m_uValue = 0;
    };
    static_assert(sizeof(CRenderState) == 8, "a render state is one 64-bit word");
}
