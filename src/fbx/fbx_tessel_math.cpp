// Time conversions, affine matrices and Euler rotations of the scene model.
#include "fbx/fbx_tessel_math.h"

#include <cmath>

static real64 const DegreesToRadians = 0.017453292519943295;
static real64 const RadiansToDegrees = 57.29577951308232;

// ---------------------------------------------------------------------------
// Time.

static real64 const FrameRates[FbxTimeMode_Count] = {
    30.0, // default
    120.0,
    100.0,
    60.0,
    50.0,
    48.0,
    30.0,
    30.0,
    46186158000.0 / 1541078334.0, // NTSC drop frame
    46186158000.0 / 1541078334.0, // NTSC
    25.0,
    24.0,
    1000.0,
    46186158000.0 / 1926347917.5, // film
    30.0,                         // custom: the rate given with it
};

static int64 const TicksPerFrame[FbxTimeMode_Count] = {
    1539538600, 384884650,  461861580,  769769300,  923723160, 962211625,  1539538600, 1539538600,
    1541078334, 1541078334, 1847446320, 1924423250, 46186158,  1926347917, 1539538600,
};

static int32 ResolveMode(int32 TimeMode)
{
    if (TimeMode <= 0 || TimeMode >= FbxTimeMode_Count) {
        return (TimeMode == 0) ? FbxTimeMode_30 : -1;
    }
    return TimeMode;
}

real64 KTime::GetFrameRate(int32 TimeMode, real64 CustomFrameRate)
{
    int32 Mode = ResolveMode(TimeMode);
    if (Mode < 0) {
        return 30.0;
    }
    if (Mode == FbxTimeMode_Custom) {
        return (CustomFrameRate > 0.0) ? CustomFrameRate : 30.0;
    }
    return FrameRates[Mode];
}

int64 KTime::GetTicksPerFrame(int32 TimeMode, real64 CustomFrameRate)
{
    int32 Mode = ResolveMode(TimeMode);
    if (Mode < 0) {
        return TicksPerFrame[FbxTimeMode_30];
    }
    if (Mode == FbxTimeMode_Custom) {
        real64 Rate = (CustomFrameRate > 0.0) ? CustomFrameRate : 30.0;
        return (int64)((real64)TicksPerSecond / Rate + 0.5);
    }
    return TicksPerFrame[Mode];
}

static bool ModeHasFields(int32 Mode)
{
    return Mode >= FbxTimeMode_30 && Mode != FbxTimeMode_24 && Mode != FbxTimeMode_1000;
}

// Ticks from the start of a second to a frame; film adds one tick every
// second frame.
static int64 FrameTicks(int32 Mode, int64 Frames, int64 PerFrame)
{
    int64 Ticks = Frames * PerFrame;
    if (Mode == FbxTimeMode_Film) {
        Ticks += Frames / 2;
    }
    return Ticks;
}

void KTime::SetSecondDouble(real64 Seconds)
{
    mTime = (int64)std::llround(Seconds * (real64)TicksPerSecond);
}

void KTime::SetTime(int32 Hours, int32 Minutes, int32 Seconds, int32 Frames, int32 Fields, int32 Residual,
                    int32 TimeMode, real64 CustomFrameRate)
{
    int32 Mode = ResolveMode(TimeMode);
    if (Mode < 0) {
        Mode = FbxTimeMode_30;
    }
    int64 PerFrame = GetTicksPerFrame(Mode, CustomFrameRate);
    int64 Ticks = ((int64)Hours * 3600 + (int64)Minutes * 60 + (int64)Seconds) * TicksPerSecond;
    int64 AllFrames = Frames;
    int64 HalfFrame = 0;
    if (ModeHasFields(Mode)) {
        AllFrames += Fields / 2;
        if (Fields % 2) {
            HalfFrame = (Mode == FbxTimeMode_Film) ? 963173959 : PerFrame / 2;
        }
    }
    Ticks += FrameTicks(Mode, AllFrames, PerFrame) + HalfFrame + Residual;
    mTime = Ticks;
}

int64 KTime::GetFrame(bool Cumulative, int32 TimeMode, real64 CustomFrameRate) const
{
    int32 Mode = ResolveMode(TimeMode);
    if (Mode < 0) {
        Mode = FbxTimeMode_30;
    }
    int64 Ticks = mTime;
    int64 Frame;
    if (Mode == FbxTimeMode_Film) {
        // Two frames take 2 * 1926347917 + 1 ticks.
        int64 Pair = 2 * 1926347917LL + 1;
        int64 Pairs = Ticks / Pair;
        int64 Rest = Ticks - Pairs * Pair;
        Frame = Pairs * 2 + Rest / 1926347917LL;
        if (Rest < 0 && Rest % 1926347917LL != 0) {
            // truncation toward zero already holds for the integer divisions
        }
    } else {
        Frame = Ticks / GetTicksPerFrame(Mode, CustomFrameRate);
    }
    if (!Cumulative) {
        real64 Rate = GetFrameRate(Mode, CustomFrameRate);
        int64 PerSecond = (int64)std::floor(Rate + 0.5);
        if (PerSecond > 0) {
            Frame %= PerSecond;
        }
    }
    return Frame;
}

// ---------------------------------------------------------------------------
// Affine matrices.

void AffineMatrix::SetIdentity()
{
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            mData[Row][Column] = (Row == Column) ? 1.0 : 0.0;
        }
    }
}

void AffineMatrix::SetT(KFbxVector4 const &T)
{
    mData[3][0] = T[0];
    mData[3][1] = T[1];
    mData[3][2] = T[2];
    mData[3][3] = 1.0;
}

void AffineMatrix::SetR(KFbxVector4 const &R)
{
    AffineMatrix Rotation = EulerToMatrix(R, FbxRotationOrder_XYZ);
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            mData[Row][Column] = Rotation.mData[Row][Column];
        }
    }
}

void AffineMatrix::SetQ(KFbxQuaternion const &Q)
{
    AffineMatrix Rotation = QuaternionToMatrix(Q);
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            mData[Row][Column] = Rotation.mData[Row][Column];
        }
    }
}

void AffineMatrix::SetTRS(KFbxVector4 const &T, KFbxVector4 const &R, KFbxVector4 const &S)
{
    SetIdentity();
    SetR(R);
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            mData[Row][Column] *= S[Row];
        }
    }
    SetT(T);
}

KFbxVector4 AffineMatrix::GetT() const
{
    return KFbxVector4(mData[3][0], mData[3][1], mData[3][2], 1.0);
}

real64 AffineMatrix::Determinant3() const
{
    real64 const(*M)[4] = mData;
    return M[0][0] * (M[1][1] * M[2][2] - M[1][2] * M[2][1]) - M[0][1] * (M[1][0] * M[2][2] - M[1][2] * M[2][0]) +
           M[0][2] * (M[1][0] * M[2][1] - M[1][1] * M[2][0]);
}

KFbxVector4 AffineMatrix::GetS() const
{
    KFbxVector4 Scale;
    for (int32 Row = 0; Row < 3; ++Row) {
        Scale[Row] =
            std::sqrt(mData[Row][0] * mData[Row][0] + mData[Row][1] * mData[Row][1] + mData[Row][2] * mData[Row][2]);
    }
    if (Determinant3() < 0.0) {
        Scale[0] = -Scale[0];
        Scale[1] = -Scale[1];
        Scale[2] = -Scale[2];
    }
    Scale[3] = 1.0;
    return Scale;
}

static AffineMatrix NormalizedRotation(AffineMatrix const &Matrix)
{
    KFbxVector4 Scale = Matrix.GetS();
    AffineMatrix Rotation;
    for (int32 Row = 0; Row < 3; ++Row) {
        real64 Factor = (Scale[Row] != 0.0) ? 1.0 / Scale[Row] : 0.0;
        for (int32 Column = 0; Column < 3; ++Column) {
            Rotation.mData[Row][Column] = Matrix.mData[Row][Column] * Factor;
        }
    }
    return Rotation;
}

KFbxVector4 AffineMatrix::GetR() const
{
    return MatrixToEuler(*this, FbxRotationOrder_XYZ);
}

KFbxQuaternion AffineMatrix::GetQ() const
{
    // Through the Euler angles, which drops any shear left in the rows.
    return MatrixToQuaternion(EulerToMatrix(GetR(), FbxRotationOrder_XYZ));
}

AffineMatrix AffineMatrix::operator*(AffineMatrix const &Other) const
{
    // Other applies first: in row form the product is Other's rows times ours.
    AffineMatrix Result;
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            real64 Sum = 0.0;
            for (int32 K = 0; K < 4; ++K) {
                Sum += Other.mData[Row][K] * mData[K][Column];
            }
            Result.mData[Row][Column] = Sum;
        }
    }
    return Result;
}

AffineMatrix AffineMatrix::operator*(real64 Factor) const
{
    AffineMatrix Result;
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            Result.mData[Row][Column] = mData[Row][Column] * Factor;
        }
    }
    return Result;
}

KFbxVector4 AffineMatrix::MultT(KFbxVector4 const &Point) const
{
    KFbxVector4 Result;
    for (int32 Column = 0; Column < 3; ++Column) {
        Result[Column] =
            Point[0] * mData[0][Column] + Point[1] * mData[1][Column] + Point[2] * mData[2][Column] + mData[3][Column];
    }
    Result[3] = 1.0;
    return Result;
}

KFbxVector4 AffineMatrix::MultR(KFbxVector4 const &Direction) const
{
    KFbxVector4 Result;
    for (int32 Column = 0; Column < 3; ++Column) {
        Result[Column] =
            Direction[0] * mData[0][Column] + Direction[1] * mData[1][Column] + Direction[2] * mData[2][Column];
    }
    return Result;
}

AffineMatrix AffineMatrix::Transpose() const
{
    AffineMatrix Result;
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            Result.mData[Row][Column] = mData[Column][Row];
        }
    }
    return Result;
}

AffineMatrix AffineMatrix::Inverse() const
{
    real64 const(*M)[4] = mData;
    real64 Determinant = Determinant3();
    AffineMatrix Result;
    if (Determinant == 0.0) {
        return Result;
    }
    real64 Factor = 1.0 / Determinant;
    real64(*I)[4] = Result.mData;
    I[0][0] = (M[1][1] * M[2][2] - M[1][2] * M[2][1]) * Factor;
    I[0][1] = (M[0][2] * M[2][1] - M[0][1] * M[2][2]) * Factor;
    I[0][2] = (M[0][1] * M[1][2] - M[0][2] * M[1][1]) * Factor;
    I[1][0] = (M[1][2] * M[2][0] - M[1][0] * M[2][2]) * Factor;
    I[1][1] = (M[0][0] * M[2][2] - M[0][2] * M[2][0]) * Factor;
    I[1][2] = (M[0][2] * M[1][0] - M[0][0] * M[1][2]) * Factor;
    I[2][0] = (M[1][0] * M[2][1] - M[1][1] * M[2][0]) * Factor;
    I[2][1] = (M[0][1] * M[2][0] - M[0][0] * M[2][1]) * Factor;
    I[2][2] = (M[0][0] * M[1][1] - M[0][1] * M[1][0]) * Factor;
    for (int32 Column = 0; Column < 3; ++Column) {
        I[3][Column] = -(M[3][0] * I[0][Column] + M[3][1] * I[1][Column] + M[3][2] * I[2][Column]);
    }
    I[0][3] = I[1][3] = I[2][3] = 0.0;
    I[3][3] = 1.0;
    return Result;
}

bool AffineMatrix::operator==(AffineMatrix const &Other) const
{
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            if (mData[Row][Column] != Other.mData[Row][Column]) {
                return false;
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// Euler rotations.

static AffineMatrix AxisRotation(int32 Axis, real64 Degrees)
{
    real64 Radians = Degrees * DegreesToRadians;
    real64 S = std::sin(Radians);
    real64 C = std::cos(Radians);
    int32 A = (Axis + 1) % 3;
    int32 B = (Axis + 2) % 3;
    AffineMatrix Result;
    Result.mData[A][A] = C;
    Result.mData[A][B] = S;
    Result.mData[B][A] = -S;
    Result.mData[B][B] = C;
    return Result;
}

// Axes of each order, first to turn first.
static int32 const OrderAxes[7][3] = {
    {0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}, {2, 1, 0}, {0, 1, 2},
};

static AffineMatrix EulerXYZ(KFbxVector4 const &Degrees)
{
    real64 X = Degrees[0] * DegreesToRadians;
    real64 Y = Degrees[1] * DegreesToRadians;
    real64 Z = Degrees[2] * DegreesToRadians;
    real64 SX = std::sin(X), CX = std::cos(X);
    real64 SY = std::sin(Y), CY = std::cos(Y);
    real64 SZ = std::sin(Z), CZ = std::cos(Z);
    AffineMatrix Result;
    Result.mData[0][0] = CZ * CY;
    Result.mData[0][1] = SZ * CY;
    Result.mData[0][2] = -SY;
    Result.mData[1][0] = SY * SX * CZ - SZ * CX;
    Result.mData[1][1] = SY * SX * SZ + CZ * CX;
    Result.mData[1][2] = CY * SX;
    Result.mData[2][0] = SY * CX * CZ + SZ * SX;
    Result.mData[2][1] = SY * CX * SZ - CZ * SX;
    Result.mData[2][2] = CY * CX;
    return Result;
}

AffineMatrix EulerToMatrix(KFbxVector4 const &Degrees, int32 Order)
{
    if (Order <= FbxRotationOrder_XYZ || Order >= FbxRotationOrder_SphericXYZ) {
        return EulerXYZ(Degrees);
    }
    int32 const *Axes = OrderAxes[Order];
    return AxisRotation(Axes[2], Degrees[Axes[2]]) * AxisRotation(Axes[1], Degrees[Axes[1]]) *
           AxisRotation(Axes[0], Degrees[Axes[0]]);
}

static KFbxVector4 RotationToEulerXYZ(real64 const M[4][4])
{
    // Z from the first row, then X from the other two rows turned back by
    // that Z: X stays consistent with Z even where Y is near +-90 degrees and
    // Z alone is poorly defined.
    real64 CY = std::sqrt(M[0][0] * M[0][0] + M[0][1] * M[0][1]);
    real64 Z = (CY > 1e-12) ? std::atan2(M[0][1], M[0][0]) : 0.0;
    real64 Y = std::atan2(-M[0][2], CY);
    real64 SZ = std::sin(Z), CZ = std::cos(Z);
    real64 X = std::atan2(SZ * M[2][0] - CZ * M[2][1], CZ * M[1][1] - SZ * M[1][0]);
    return KFbxVector4(X * RadiansToDegrees, Y * RadiansToDegrees, Z * RadiansToDegrees, 0.0);
}

KFbxVector4 MatrixToEuler(AffineMatrix const &Matrix, int32 Order)
{
    AffineMatrix Rotation = NormalizedRotation(Matrix);
    if (Order <= FbxRotationOrder_XYZ || Order >= FbxRotationOrder_SphericXYZ) {
        return RotationToEulerXYZ(Rotation.mData);
    }
    // Relabel the axes so that the order reads XYZ. An odd relabelling
    // mirrors the frame, which turns every angle around.
    int32 const *Axes = OrderAxes[Order];
    real64 Relabelled[4][4] = {};
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            Relabelled[Row][Column] = Rotation.mData[Axes[Row]][Axes[Column]];
        }
    }
    bool Odd = (Order == FbxRotationOrder_XZY || Order == FbxRotationOrder_YXZ || Order == FbxRotationOrder_ZYX);
    KFbxVector4 Angles = RotationToEulerXYZ(Relabelled);
    KFbxVector4 Result;
    for (int32 Index = 0; Index < 3; ++Index) {
        Result[Axes[Index]] = Odd ? -Angles[Index] : Angles[Index];
    }
    return Result;
}

AffineMatrix QuaternionToMatrix(KFbxQuaternion const &Q)
{
    real64 X = Q[0], Y = Q[1], Z = Q[2], W = Q[3];
    real64 Length = std::sqrt(X * X + Y * Y + Z * Z + W * W);
    AffineMatrix Result;
    if (Length == 0.0) {
        return Result;
    }
    X /= Length;
    Y /= Length;
    Z /= Length;
    W /= Length;
    // Row i is the image of axis i.
    Result.mData[0][0] = 1.0 - 2.0 * (Y * Y + Z * Z);
    Result.mData[0][1] = 2.0 * (X * Y + Z * W);
    Result.mData[0][2] = 2.0 * (X * Z - Y * W);
    Result.mData[1][0] = 2.0 * (X * Y - Z * W);
    Result.mData[1][1] = 1.0 - 2.0 * (X * X + Z * Z);
    Result.mData[1][2] = 2.0 * (Y * Z + X * W);
    Result.mData[2][0] = 2.0 * (X * Z + Y * W);
    Result.mData[2][1] = 2.0 * (Y * Z - X * W);
    Result.mData[2][2] = 1.0 - 2.0 * (X * X + Y * Y);
    return Result;
}

KFbxQuaternion MatrixToQuaternion(AffineMatrix const &Matrix)
{
    AffineMatrix Rotation = NormalizedRotation(Matrix);
    // Column form: C[i][j] = stored[j][i].
    auto C = [&](int32 I, int32 J) { return Rotation.mData[J][I]; };
    real64 Trace = C(0, 0) + C(1, 1) + C(2, 2);
    KFbxQuaternion Q;
    if (Trace > 0.0) {
        real64 S = std::sqrt(Trace + 1.0) * 2.0;
        Q[3] = 0.25 * S;
        Q[0] = (C(2, 1) - C(1, 2)) / S;
        Q[1] = (C(0, 2) - C(2, 0)) / S;
        Q[2] = (C(1, 0) - C(0, 1)) / S;
    } else if (C(0, 0) > C(1, 1) && C(0, 0) > C(2, 2)) {
        real64 S = std::sqrt(1.0 + C(0, 0) - C(1, 1) - C(2, 2)) * 2.0;
        Q[3] = (C(2, 1) - C(1, 2)) / S;
        Q[0] = 0.25 * S;
        Q[1] = (C(0, 1) + C(1, 0)) / S;
        Q[2] = (C(0, 2) + C(2, 0)) / S;
    } else if (C(1, 1) > C(2, 2)) {
        real64 S = std::sqrt(1.0 + C(1, 1) - C(0, 0) - C(2, 2)) * 2.0;
        Q[3] = (C(0, 2) - C(2, 0)) / S;
        Q[0] = (C(0, 1) + C(1, 0)) / S;
        Q[1] = 0.25 * S;
        Q[2] = (C(1, 2) + C(2, 1)) / S;
    } else {
        real64 S = std::sqrt(1.0 + C(2, 2) - C(0, 0) - C(1, 1)) * 2.0;
        Q[3] = (C(1, 0) - C(0, 1)) / S;
        Q[0] = (C(0, 2) + C(2, 0)) / S;
        Q[1] = (C(1, 2) + C(2, 1)) / S;
        Q[2] = 0.25 * S;
    }
    return Q;
}

KFbxQuaternion QuaternionSlerp(KFbxQuaternion const &A, KFbxQuaternion const &B, real64 Fraction)
{
    real64 Dot = A[0] * B[0] + A[1] * B[1] + A[2] * B[2] + A[3] * B[3];
    real64 Sign = 1.0;
    if (Dot < 0.0) {
        Dot = -Dot;
        Sign = -1.0;
    }
    real64 WeightA, WeightB;
    if (Dot > 0.9995) {
        WeightA = 1.0 - Fraction;
        WeightB = Fraction;
    } else {
        real64 Angle = std::acos(Dot);
        real64 Sine = std::sin(Angle);
        WeightA = std::sin((1.0 - Fraction) * Angle) / Sine;
        WeightB = std::sin(Fraction * Angle) / Sine;
    }
    KFbxQuaternion Result;
    real64 Length = 0.0;
    for (int32 Index = 0; Index < 4; ++Index) {
        Result[Index] = WeightA * A[Index] + Sign * WeightB * B[Index];
        Length += Result[Index] * Result[Index];
    }
    Length = std::sqrt(Length);
    if (Length > 0.0) {
        for (int32 Index = 0; Index < 4; ++Index) {
            Result[Index] /= Length;
        }
    }
    return Result;
}

// ---------------------------------------------------------------------------
// Polar decomposition.

static real64 Determinant3x3(real64 const A[3][3])
{
    return A[0][0] * (A[1][1] * A[2][2] - A[1][2] * A[2][1]) - A[0][1] * (A[1][0] * A[2][2] - A[1][2] * A[2][0]) +
           A[0][2] * (A[1][0] * A[2][1] - A[1][1] * A[2][0]);
}

// The inverse transpose of A; false when A is (nearly) singular.
static bool InverseTranspose3x3(real64 const A[3][3], real64 Result[3][3])
{
    real64 Determinant = Determinant3x3(A);
    real64 Size = 0.0;
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) Size = std::fmax(Size, std::fabs(A[Row][Column]));
    }
    if (!(std::fabs(Determinant) > 1e-12 * Size * Size * Size) || Size == 0.0) {
        return false;
    }
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            int32 R1 = (Row + 1) % 3, R2 = (Row + 2) % 3, C1 = (Column + 1) % 3, C2 = (Column + 2) % 3;
            // Cofactor of (Row, Column): the transpose of the inverse's entry.
            Result[Row][Column] = (A[R1][C1] * A[R2][C2] - A[R1][C2] * A[R2][C1]) / Determinant;
        }
    }
    return true;
}

// Orthonormal axes from the columns of A by Gram-Schmidt, right-handed.
static void OrthonormaliseColumns(real64 const A[3][3], real64 Q[3][3])
{
    real64 Axes[3][3];
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        for (int32 Row = 0; Row < 3; ++Row) Axes[Axis][Row] = A[Row][Axis];
    }
    real64 const Fallback[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        for (int32 Attempt = 0; Attempt < 4; ++Attempt) {
            for (int32 Earlier = 0; Earlier < Axis; ++Earlier) {
                real64 Dot = 0.0;
                for (int32 K = 0; K < 3; ++K) Dot += Axes[Axis][K] * Axes[Earlier][K];
                for (int32 K = 0; K < 3; ++K) Axes[Axis][K] -= Dot * Axes[Earlier][K];
            }
            real64 Length = std::sqrt(Axes[Axis][0] * Axes[Axis][0] + Axes[Axis][1] * Axes[Axis][1] +
                                      Axes[Axis][2] * Axes[Axis][2]);
            if (Length > 1e-12) {
                for (int32 K = 0; K < 3; ++K) Axes[Axis][K] /= Length;
                break;
            }
            // A collapsed axis: try the unit axes in turn.
            for (int32 K = 0; K < 3; ++K) Axes[Axis][K] = Fallback[(Axis + Attempt) % 3][K];
        }
    }
    // Right-handed: the third axis is the cross product of the first two.
    Axes[2][0] = Axes[0][1] * Axes[1][2] - Axes[0][2] * Axes[1][1];
    Axes[2][1] = Axes[0][2] * Axes[1][0] - Axes[0][0] * Axes[1][2];
    Axes[2][2] = Axes[0][0] * Axes[1][1] - Axes[0][1] * Axes[1][0];
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        for (int32 Row = 0; Row < 3; ++Row) Q[Row][Axis] = Axes[Axis][Row];
    }
}

// Column-vector rotation matrix to a quaternion x, y, z, w with w >= 0.
static void RotationToQuaternion(real64 const R[3][3], real64 *Q)
{
    real64 Trace = R[0][0] + R[1][1] + R[2][2];
    if (Trace > 0.0) {
        real64 S = std::sqrt(Trace + 1.0) * 2.0;
        Q[3] = 0.25 * S;
        Q[0] = (R[2][1] - R[1][2]) / S;
        Q[1] = (R[0][2] - R[2][0]) / S;
        Q[2] = (R[1][0] - R[0][1]) / S;
    } else if (R[0][0] > R[1][1] && R[0][0] > R[2][2]) {
        real64 S = std::sqrt(1.0 + R[0][0] - R[1][1] - R[2][2]) * 2.0;
        Q[3] = (R[2][1] - R[1][2]) / S;
        Q[0] = 0.25 * S;
        Q[1] = (R[0][1] + R[1][0]) / S;
        Q[2] = (R[0][2] + R[2][0]) / S;
    } else if (R[1][1] > R[2][2]) {
        real64 S = std::sqrt(1.0 + R[1][1] - R[0][0] - R[2][2]) * 2.0;
        Q[3] = (R[0][2] - R[2][0]) / S;
        Q[0] = (R[0][1] + R[1][0]) / S;
        Q[1] = 0.25 * S;
        Q[2] = (R[1][2] + R[2][1]) / S;
    } else {
        real64 S = std::sqrt(1.0 + R[2][2] - R[0][0] - R[1][1]) * 2.0;
        Q[3] = (R[1][0] - R[0][1]) / S;
        Q[0] = (R[0][2] + R[2][0]) / S;
        Q[1] = (R[1][2] + R[2][1]) / S;
        Q[2] = 0.25 * S;
    }
    real64 Length = std::sqrt(Q[0] * Q[0] + Q[1] * Q[1] + Q[2] * Q[2] + Q[3] * Q[3]);
    real64 Sign = Q[3] < 0.0 ? -1.0 : 1.0;
    for (int32 Component = 0; Component < 4; ++Component) Q[Component] *= Sign / Length;
}

void SplitAffineMatrix(AffineMatrix const &Matrix, real64 *Position, real64 *Orientation, real64 *ScaleShear)
{
    for (int32 Axis = 0; Axis < 3; ++Axis) Position[Axis] = Matrix.mData[3][Axis];
    // Column-vector linear part: the transpose of the row form.
    real64 A[3][3];
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) A[Row][Column] = Matrix.mData[Column][Row];
    }
    real64 Sign = Determinant3x3(A) < 0.0 ? -1.0 : 1.0;
    // Polar decomposition of Sign x A (a proper rotation then): Newton's
    // iteration Q <- (Q + Q^-T) / 2, which converges for a regular matrix.
    real64 Q[3][3];
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) Q[Row][Column] = Sign * A[Row][Column];
    }
    bool Regular = true;
    for (int32 Iteration = 0; Iteration < 64; ++Iteration) {
        real64 InverseT[3][3];
        if (!InverseTranspose3x3(Q, InverseT)) {
            Regular = false;
            break;
        }
        real64 Change = 0.0;
        for (int32 Row = 0; Row < 3; ++Row) {
            for (int32 Column = 0; Column < 3; ++Column) {
                real64 Next = 0.5 * (Q[Row][Column] + InverseT[Row][Column]);
                Change = std::fmax(Change, std::fabs(Next - Q[Row][Column]));
                Q[Row][Column] = Next;
            }
        }
        if (Change < 1e-15) {
            break;
        }
    }
    if (!Regular) {
        real64 Signed[3][3];
        for (int32 Row = 0; Row < 3; ++Row) {
            for (int32 Column = 0; Column < 3; ++Column) Signed[Row][Column] = Sign * A[Row][Column];
        }
        OrthonormaliseColumns(Signed, Q);
    } else {
        // Clean the converged rotation of rounding.
        real64 Clean[3][3];
        OrthonormaliseColumns(Q, Clean);
        for (int32 Row = 0; Row < 3; ++Row) {
            for (int32 Column = 0; Column < 3; ++Column) Q[Row][Column] = Clean[Row][Column];
        }
    }
    RotationToQuaternion(Q, Orientation);
    // ScaleShear = Q^T A, symmetric for a regular matrix; kept as computed so
    // that R x ScaleShear rebuilds A.
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            real64 Sum = 0.0;
            for (int32 K = 0; K < 3; ++K) Sum += Q[K][Row] * A[K][Column];
            ScaleShear[Row * 3 + Column] = Sum;
        }
    }
    if (Regular) {
        for (int32 Row = 0; Row < 3; ++Row) {
            for (int32 Column = Row + 1; Column < 3; ++Column) {
                real64 Mean = 0.5 * (ScaleShear[Row * 3 + Column] + ScaleShear[Column * 3 + Row]);
                ScaleShear[Row * 3 + Column] = ScaleShear[Column * 3 + Row] = Mean;
            }
        }
    }
}
