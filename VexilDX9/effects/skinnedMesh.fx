// Skinned meshes: every vertex of a blended mesh takes up to three bone matrices (weights from the
// vertex, the last one implied), is lit per vertex by one directional light with
// the material block, and is textured when hasTextureMap is set. An application loads the
// compiled file and hands it to MeshManagerD3DX9::setSkinEffect.

// Transformation block. World matrices come from the bones; matWorld* are declared for the block.
float4x4 matWorld;
float4x4 matViewProjection : register(vs, c0);
float4x4 matWorldInverseTranspose;
float4x4 matViewInverse : register(vs, c4);  // row 3 is the eye position

// Vertex blend block. The palette's entries past the last bone of a combination repeat that
// bone, so the implied weight lands on the right matrix whatever number of weights the vertex
// carries; the bone slots (-1 unused) are declared for the block.
float4x4 blendMatrices[3] : register(vs, c8);
float4x4 blendMatricesInverseTranspose[3] : register(vs, c20);
int blendIndices[3];

// Light and material blocks.
float3 lightDirection : register(vs, c35) = { -1, -1, 1 };
float ambientCoeff : register(vs, c36) = 0.2;
float4 ambientColor : register(vs, c37) = { 1, 1, 1, 1 };
float diffuseCoeff : register(vs, c38) = 1.0;
float4 diffuseColor : register(vs, c39) = { 1, 1, 1, 1 };
float specularCoeff : register(vs, c40) = 0.4;
float specularPower : register(vs, c41) = 90.0;
float4 specularColor : register(vs, c42) = { 1, 1, 1, 1 };
float selfShadowPower = 5.0;

// Texture block.
// A float, so that the pixel shader can read it (ps_2_0 has no boolean constants); D3DX converts
// the flag set through SetBool.
float hasTextureMap : register(ps, c0) = 0;
bool hasNormalMap = false;
texture textureMap;
texture normalMap;
sampler2D textureSampler : register(s0) = sampler_state {
    Texture = <textureMap>;
    MinFilter = LINEAR;
    MagFilter = LINEAR;
    MipFilter = LINEAR;
};

technique SkinnedMesh
{
    pass Blend
    {
        ZEnable = TRUE;
        ZWriteEnable = TRUE;
        CullMode = NONE;
        VertexShader = asm {
            vs_2_0
            def c100, 0, 1, 0, 0
            dcl_position v0
            dcl_blendweight v1
            dcl_normal v2
            dcl_texcoord v3
            mov r11, c100
            // weights: the vertex's for the first two slots, the rest implied for the third
            mov r3.xy, v1
            add r4.x, v1.x, v1.y
            add r3.z, r11.y, -r4.x
            // blended position and normal (row-major matrices: a row per register)
            mul r5, v0.x, c8
            mad r5, v0.y, c9, r5
            mad r5, v0.z, c10, r5
            add r5, r5, c11
            mul r6, v0.x, c12
            mad r6, v0.y, c13, r6
            mad r6, v0.z, c14, r6
            add r6, r6, c15
            mul r7, v0.x, c16
            mad r7, v0.y, c17, r7
            mad r7, v0.z, c18, r7
            add r7, r7, c19
            mul r8, r5, r3.x
            mad r8, r6, r3.y, r8
            mad r8, r7, r3.z, r8
            mul r4, r8.x, c0
            mad r4, r8.y, c1, r4
            mad r4, r8.z, c2, r4
            mad oPos, r8.w, c3, r4
            mul r5.xyz, v2.x, c20
            mad r5.xyz, v2.y, c21, r5
            mad r5.xyz, v2.z, c22, r5
            mul r6.xyz, v2.x, c24
            mad r6.xyz, v2.y, c25, r6
            mad r6.xyz, v2.z, c26, r6
            mul r7.xyz, v2.x, c28
            mad r7.xyz, v2.y, c29, r7
            mad r7.xyz, v2.z, c30, r7
            mul r9.xyz, r5, r3.x
            mad r9.xyz, r6, r3.y, r9
            mad r9.xyz, r7, r3.z, r9
            dp3 r9.w, r9, r9
            rsq r9.w, r9.w
            mul r9.xyz, r9, r9.w
            // towards the light, towards the eye, half vector
            mov r10, c35
            dp3 r10.w, r10, r10
            rsq r10.w, r10.w
            mul r10.xyz, -r10, r10.w
            add r0.xyz, c7, -r8
            dp3 r0.w, r0, r0
            rsq r0.w, r0.w
            mul r0.xyz, r0, r0.w
            add r0.xyz, r0, r10
            dp3 r0.w, r0, r0
            rsq r0.w, r0.w
            mul r0.xyz, r0, r0.w
            dp3 r1.x, r9, r10
            dp3 r1.y, r9, r0
            mov r1.w, c41.x
            lit r1, r1
            // diffuse colour x (ambient + diffuse light); the specular goes to the second colour
            mov r2, c37
            mul r2, r2, c36.x
            mov r4, c38
            mad r2, r4.x, r1.y, r2
            mul oD0.xyz, r2, c39
            mov oD0.w, c39.w
            mov r4, c40
            mul r4.x, r4.x, r1.z
            mul oD1, c42, r4.x
            mov oT0, v3
        };
        PixelShader = asm {
            ps_2_0
            def c1, 1, 1, 1, 1
            dcl t0.xy
            dcl v0
            dcl v1
            dcl_2d s0
            texld r0, t0, s0
            mov r1, c1
            add r0, r0, -r1
            mov r2, c0
            mad r0, r0, r2.x, r1
            mul r0, r0, v0
            add r0.xyz, r0, v1
            mov oC0, r0
        };
    }
}
