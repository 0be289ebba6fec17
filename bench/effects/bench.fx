// Benchmark effect: parameters of the measured types, one pass that uses them.
float Scale = 1.0f;
float4x4 World : register(vs, c0);
float4x4 Palette[26] : register(vs, c4);
float4 Colour : register(ps, c0) = { 1, 1, 1, 1 };

technique Draw
{
    pass Only
    {
        ZEnable = FALSE;
        CullMode = NONE;
        VertexShader = asm { vs_2_0 dcl_position v0 m4x4 oPos, v0, c0 };
        PixelShader = asm { ps_2_0 mov oC0, c0 };
    }
}
